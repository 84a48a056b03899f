// How far each log has been read.
#pragma once

#include <sys/stat.h>

#include "core/read/log_mark.h"

namespace zvtaskq {

class ConfigFile;

struct LogPosition {
  /// The size of the log when its end was last seen, in bytes.
  long long size = 0;
  /// Where the first line begins that has not been read, and of which file.
  LogMark mark;
};

/// What the scan state keeps of the log. 0 when it keeps nothing, or nothing that makes sense; `last` is then that of a
/// log which was never read.
int get_last_scan_info(const char* path, const ConfigFile& state, LogPosition& last);
/// Whether the path can stand in the scan state; 0 with an error-log line, once a day.
[[nodiscard]] int canKeepTrackOf(const char* path);
/// Keeps how far the log was read.
int set_last_scan_info(const char* path, ConfigFile& state, const LogPosition& now);

/// What to do with a log.
enum class LogNews {
  /// It is as it was.
  nothing,
  /// It is empty.
  empty,
  /// It may be read on from the position kept.
  more,
  /// It is another file, or was cut: to be read from its beginning.
  anew,
};
/// Compares the log as it is with what was kept of it, and tells in the debug output. Without a descriptor (-1) it goes
/// by what can be seen from outside; with one a log that was cut and has grown past its old size is seen too.
LogNews newsOf(const char* path, const LogPosition& last, const struct stat& now, int fd);

}  // namespace zvtaskq
