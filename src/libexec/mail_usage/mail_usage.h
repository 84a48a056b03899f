// The mail server's byte files: entered into the accounts' tally files, line by line.
#pragma once

#include <chrono>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/panel_file.h"
#include "core/sys/sys.h"

namespace zvtaskq {

class Config;

/// What of a source's text goes into a tally file.
struct MailLines {
  /// Whole lines, each with its line feed.
  std::string lines;
  /// The bytes of the source that they were taken from, with what was left out.
  std::size_t consumed = 0;
  /// Lines left out: what is no e-mail's line is none of the mail server's to write.
  long long refused = 0;
};

/// Takes the lines of e-mails ("<bytes>=type=email&...") from a text, as they stand there; stops once `most` bytes of
/// them are taken. With `isEnded`, what follows the last line feed is a line too.
MailLines takeMailLines(std::string_view text, bool isEnded, std::size_t most = std::string_view::npos);

/// How much of a block of whole lines, which were to be appended at once, has been written.
struct Written {
  /// Bytes of its whole lines that are there.
  std::size_t whole = 0;
  /// Where the beginning of its next line stands, cut short by the end of the writer; and its length, 0 for none.
  std::size_t tornAt = 0;
  std::size_t torn = 0;
};
/// Looks in `added`, all that was appended since by anybody.
Written findWritten(std::string_view added, std::string_view block);

/// Moves the lines of "<emailvirtual>/usage/<account>.bytes" into the accounts' "bandwidth.tally".
///
/// Each file is renamed to "<account>.bytes.billing", read to where its writers have come, and deleted when nobody has
/// it open any more; who writes by name goes on with a new one. How far each is read stands in a note in the panel's
/// state
/// ("mail_usage/note"), together with, before lines are appended, how long the tally file was: after a run that was
/// killed the next one looks which of them are there. So each line is entered once, whatever is killed when.
///
/// The folder belongs to the mail server's user, who is trusted with no more than it: it is opened once, through no
/// link, files are taken by their name in it, and only plain ones with one name; what is entered is lines of e-mails of
/// accounts that there are. Works as root, and gives back the identity it finds.
class MailUsage {
 public:
  explicit MailUsage(const Config& conf);

  /// Does it for all accounts. 0 with error-log lines when something could not be entered; the next one tries again.
  [[nodiscard]] int enter();

 private:
  /// An account whose file is put aside.
  struct Account {
    std::string name;
    bool isHeld = false;
    bool isDone = false;
    /// Bytes read of it by this run, and what of it is being entered.
    long long read = 0;
    long long from = 0;
    long long to = 0;
  };

  [[nodiscard]] int open();
  [[nodiscard]] int openUsage();
  [[nodiscard]] int writeNote();
  [[nodiscard]] int makeSafe();
  [[nodiscard]] int settleAll();
  void settle(const std::string& name);
  Written lookIn(const std::string& path, long long from, std::string_view block) const;
  void listFiles();
  void putAside();
  [[nodiscard]] int enterAside();
  void waitForWriters();
  bool isHeld(const Account& account) const;
  [[nodiscard]] int enterRound();
  bool plan(Account& account);
  void append(Account& account);
  void deleteDone(Account& account);

  Descriptor openAside(const std::string& name) const;
  std::string textFrom(int file, long long from, long long to) const;
  long long placeOf(const std::string& name, int file) const;
  void setPlace(const std::string& name, int file, long long place);
  void refuse(const std::string& name, const std::string& file);
  int tell(const std::string& what);

  const Config& conf_;
  std::string path_;
  Descriptor folder_;
  /// Holds the lock on the note.
  Descriptor state_;
  PanelRecord note_;
  /// Of the accounts there are: those with a file, and those with one put aside.
  std::set<std::string> fresh_;
  std::vector<Account> aside_;
  std::chrono::steady_clock::time_point writersEnd_;
  int outcome_ = 1;
};

}  // namespace zvtaskq
