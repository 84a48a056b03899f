// The mail server's own files, which belong to its user and which others may have had a hand in.
#pragma once

#include <string>

#include "core/record/config_file.h"
#include "core/sys/sys.h"

namespace zvtaskq {

/// The Unix user that these files belong to.
inline constexpr const char* kMailUser = "mail";

/// Whether `name` can be a mailbox or a mail domain, and so a part of a file name: not empty, not hidden, without a
/// slash and control characters, at most 200 bytes. Null cannot.
bool isMailName(const char* name);

/// Opens what stands at `path` below `emailvirtual`, following no link below it. Not open, errno set, on failure. Works
/// under the identity of the moment.
Descriptor openMailPath(const std::string& path, int flags);

/// "vacation.conf" of a mail domain, where the mailboxes' vacations are: a pair a mailbox.
std::string vacationFile(const char* domain);

/// A record of the mail server's: "name:value" lines, read and written as its user.
class MailRecord : public ConfigFile {
 public:
  explicit MailRecord(const char* path);
  /// Reads it, lines without a colon too, and keeps its permission bits for a write: the mail server goes on reading
  /// it.
  [[nodiscard]] int read();
};

}  // namespace zvtaskq
