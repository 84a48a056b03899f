// E-mail copies of system messages, handed to the mail server of this machine.
#pragma once

#include <string>
#include <vector>

#include "core/record/config_file.h"

namespace zvtaskq {

/// The program that takes a message, with the option "-t".
inline constexpr const char* kSendmail = "/usr/sbin/sendmail";
/// Seconds it may take for one.
inline constexpr int kSendmailTimeLimit = 60;

/// The addresses that an account's record names in `email`, separated by commas; what is no address is left out.
std::vector<std::string> addressesOf(const ConfigFile& account);
/// Whether the account wants an e-mail copy of a message: unless its record says `email_on_message=no`.
bool wantsCopies(const ConfigFile& account);

/// One message on its way to many.
class MailCopies {
 public:
  /// All are copied; null counts as empty. The sender is the panel's user at `servername`.
  MailCopies(const char* senderName, const char* subject, const char* body);

  /// It is an account's own from now on: its name and address stand as the sender's, and the panel's user in a header
  /// "X-Zorvane-Sender". What is no address changes nothing.
  void sentFor(const char* name, const char* address);

  /// Sends it to one address. The mail program runs as the panel's user. 0, with an error-log line, when it was not
  /// taken. Once the program cannot be started or does not end in time, nothing more is sent in this process: a run
  /// must not wait a minute for each of ten thousand recipients. May be called under any identity, which is the same
  /// afterwards.
  [[nodiscard]] int send(const std::string& address) const;

 private:
  std::string senderName_;
  std::string subject_;
  std::string body_;
  std::string from_;
};

}  // namespace zvtaskq
