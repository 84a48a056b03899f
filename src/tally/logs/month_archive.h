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
/// more) to the archive `archive` in a folder of `user`, as a member called `member`. What the archive holds stays as
/// it is and is not touched: the log is written behind it. A new archive, and one that somebody else made, is written
/// beside it, under the same name and ".temp", and takes its place when it is whole. In either way a crash leaves what
/// was there before, and the log counts when it is safe on the disk. The archive is as old as its newest log.
///
/// Everything is done as the user, so that the disk quota counts and nothing of anybody else's can be touched; only
/// the bytes are compressed (/bin/gzip) under the panel's user, whose processes the account cannot stop.
/// Returns 1, or 0 with an error-log line, and everything as it was. Leaves the process at nobody.
[[nodiscard]] int addToArchive(const char* user, const OpenedFolder& folder, const std::string& archive,
                               const std::string& member, const Descriptor& log);

}  // namespace zvtaskq
