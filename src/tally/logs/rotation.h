// The numbered rotation of one log: L becomes L.1, L.1 becomes L.2, and the oldest goes.
#pragma once

#include <string>

namespace zvtaskq {

class Config;

/// The number that rotations keep to: `logs_to_keep`, twice that behind a proxy (`nginx_proxy`), where every log is
/// written by two servers. 0 to 2,000,000.
int logs_to_keep(const Config* conf);

/// Moves the log at `path` up one place, and those before it as far as needed: with a number N to keep there are L.1 to
/// L.(N-1), and what would come after is deleted; with N of 1 or less the log itself is. A name that ends in ".n" goes
/// on to ".n+1" for n up to 400; from a larger n on the number is said once more (L.500 becomes L.500.500). Callers
/// pass depth 0: it counts the places moved for this one.
///
/// With `copyAndTruncate` the log itself is copied to L.1 and emptied, for writers that keep it open in append mode.
/// What they add during the copy is copied too, until nothing more comes, and only then is the log emptied; lost is at
/// most what arrives in the microseconds between the last look and that. The copy belongs to whom the log belongs. A
/// copy that fails, or that a writer outruns, is removed, and the log keeps all it has: an error-log line, and success.
///
/// A log that is a symbolic link or has more than one name is refused, and so is one that is reached through a link;
/// only an administrator's link above a system folder is followed (core/tree/guarded_folder.h). The work is done by
/// descriptor within the log's folder, so nothing outside it can be touched whatever is swapped meanwhile.
///
/// Works as root, whatever the identity, which is the same afterwards. Returns 1, also when there is no such log; 0
/// with an error-log line ("Tally::rotate_log_up...") and, for a link, a security-log line.
[[nodiscard]] int rotate_log_up(const char* path, const Config* conf, int depth, bool copyAndTruncate);

/// The same, without a copy, for the log `name` in an open folder, `folderPath` (with a slash at its end) for the
/// messages: under the identity of the moment, which may be the user's whose folder it is.
[[nodiscard]] int rotateLogIn(int folder, const std::string& folderPath, const std::string& name, const Config* conf);

}  // namespace zvtaskq
