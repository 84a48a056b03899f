// Copying, renaming and looking into files. All work under the identity of the moment and leave it.
#pragma once

#include <string>

#include "core/text/text.h"

namespace zvtaskq {

/// Copies the regular file `from` (not through a link) to `to`, byte by byte, holes staying holes. The copy is made
/// under a name of its own in the folder of `to` and put in place when it is whole and safe on the disk: a file that
/// was there is replaced as a whole or not at all, and a link there is replaced, never followed. It gets the
/// permission bits `mode`, or those of `from` without set-id bits when 0, and belongs to the identity of the moment.
/// 0 with errno set.
[[nodiscard]] int copyFile(const char* from, const char* to, unsigned mode = 0);

/// Renames, saying in the system result (cleared first) how it went: "File successfully renamed", or "Unable to move "
/// + from + " to " + to + ": " and why. With `checkHardLinks`, root does not rename when either is a regular file with
/// more than one name: "<path> is a hard link.  Will not rename ..." and a security-log line.
[[nodiscard]] int renameFile(const char* from, const char* to, int checkHardLinks);

/// The last `lines` lines of the file, an unfinished one at the end included, at most the last 8 MB of it. 0 with errno
/// set when it is no regular file that can be read; `out` is then empty.
[[nodiscard]] int tail(const char* path, int lines, std::string& out);

/// The lines of the file that contain `text`, each with its line feed, up to `mostBytes` of them (0: no limit); case
/// counts unless `ignoreCase` (ASCII letters). An empty text is in every line. Returns the number of lines found, also
/// beyond what fits; -1 with errno set when it is no regular file that can be read.
int grep(const char* path, const char* text, std::string& out, int ignoreCase = 0, std::size_t mostBytes = 8UL << 20);

}  // namespace zvtaskq
