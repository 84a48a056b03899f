// The list of the log lines that counted.
//
// It is sorted by its keys as texts, where "…10000" stands before "…1001". The lines of a scan wait in the order they
// came, and are read by one reader for each length of a key, from which the order is merged.
#pragma once

#include <string>
#include <vector>

#include "tally/bruteforce/records/spool.h"

namespace zvtaskq {

/// Appends the entries of a scan at `time` (seconds since the epoch), sorted by key, to the list of entries, under its
/// lock, as the panel's user; nobody afterwards. `filters` are the names of the scan's filters. With `resume` an
/// earlier attempt may have appended some already: its torn last line is cut off, and only what is missing is added. 0
/// with an error-log line; the list is then as long as before.
[[nodiscard]] int appendBruteEntries(const SpooledEntries& entries, const std::vector<std::string>& filters,
                                     long long time, bool resume);
/// The time of the last entry of the list; 0 when there is none, or its end is too long to find it. Leaves the process
/// at nobody.
long long timeOfLastEntry();

}  // namespace zvtaskq
