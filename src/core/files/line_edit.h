// Changing some lines of a text file that other programs read, and all others not by a byte.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "core/sys/identity.h"
#include "core/text/text.h"

namespace zvtaskq {

/// Bytes of the largest file that is changed so, or read whole.
inline constexpr std::size_t kMostEdited = 32UL << 20;

/// What becomes of a line.
enum class LineFate { keep, drop, replace };

/// Decides about a line, which comes without its line feed; for `replace` it sets `instead`.
using LineEdit = std::function<LineFate(std::string_view line, std::string& instead)>;

/// Replaces the file at `path` by itself with its lines edited and `added` (whole lines, may be empty) at its end, as
/// the user `owner` who owns its folder: under the file's lock, by a safe write. Owner, group and permission bits stay;
/// what needs no change is not written. There being no file is no failure, unless there is something to add: it is then
/// made with the permission bits 0640. A link is refused, unless root made it. 0 with one line in `result` that names
/// the file: it cannot be read or written, is no regular file, or is larger than `kMostEdited`. Works under any
/// identity, which is the same afterwards.
[[nodiscard]] int editLines(const std::string& path, Ids owner, const LineEdit& edit, std::string_view added,
                            Text& result);

/// Calls `look` for each line of such a file, without a lock.
[[nodiscard]] int readLinesOf(const std::string& path, Ids owner, const std::function<void(std::string_view)>& look,
                              Text& result);

/// Writes a file of the owner's as a whole by a safe write. 0 with one line in `result`.
[[nodiscard]] int writeWhole(const std::string& path, Ids owner, std::string_view content, mode_t mode, Text& result);
/// Reads one as a whole; there being none is an empty one.
[[nodiscard]] int readWhole(const std::string& path, Ids owner, std::string& content, Text& result);

}  // namespace zvtaskq
