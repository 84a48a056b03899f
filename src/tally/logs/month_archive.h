// The archive of a month's logs in an account's folder.
#pragma once

#include <string>
#include <string_view>

#include "account/model/user_folder.h"
#include "core/sys/sys.h"

namespace zvtaskq {

/// "Nov-2026.tar.gz" for the month in which the second `time` lies (local time), with "nginx-" before it for the logs
/// of a proxy.
std::string monthArchiveName(long long time, bool ofProxy);
/// Whether a name is one that `monthArchiveName` gives.
bool isMonthArchiveName(std::string_view name);

/// Adds the log that `log` is open at (readable, from its beginning; the caller knows that nobody writes to it any
/// more) to the archive `archive` in a folder of `user`, as a member called `member`. What the archive holds stays, and
/// an archive that is missing is begun: the new one is made beside it, under the same name and ".temp", and takes its
/// place when it is whole and safe on the disk. Everything is done as the user, compressing too (/bin/gzip), so the
/// disk quota counts and nothing of anybody else's can be touched.
/// Returns 1, or 0 with an error-log line, and everything as it was. Leaves the process at nobody.
[[nodiscard]] int addToArchive(const char* user, const OpenedFolder& folder, const std::string& archive,
                               const std::string& member, const Descriptor& log);

}  // namespace zvtaskq
