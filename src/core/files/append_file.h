// Adding to a file that several programs add to.
#pragma once

#include <sys/stat.h>

#include <string_view>

namespace zvtaskq {

enum class Appended { done, locked, failed };

/// Appends whole lines (each with its line feed) to the regular file at `path`, never through a link or to a
/// file that has another name too, and makes the file when it is not there: under the file's lock, with one write that
/// is taken back when it falls short, so that the lines are there whole or not at all. A line that a writer before left
/// unfinished is ended first. The file then belongs to the panel's user, mode 0600; or with `like`, to the owner of
/// that file, with its permission bits. `caller` names the operation to the lock.
///
/// Runs as root, and leaves that identity. `locked`: the lock could not be had; `failed`: the file could not be opened
/// or added to, with an error-log line and errno.
[[nodiscard]] Appended appendLines(const char* path, std::string_view lines, const char* caller,
                                   const struct stat* like = nullptr);

}  // namespace zvtaskq
