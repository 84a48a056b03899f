// Keeping the log of the lines that counted (`brute_log_entries.list`) short.
#pragma once

namespace zvtaskq {

class Config;

/// Seconds for the scripts of all addresses whose entries are removed.
inline constexpr int kClearHookTime = 300;

/// Removes the entries that are `clear_brute_log_entry_time` days old and older (0 and below: none), under the lock on
/// the list. What is no entry with a time stays, an unfinished last line included, and so does all that cannot be
/// removed safely: the list is replaced when its new content is whole on the disk, or not at all. A list without old
/// entries is not written. Memory grows with the distinct addresses of the removed entries alone.
///
/// For each of these addresses the administrator's script "brute_force_clear_log_ip.sh" then runs, with the address as
/// `value`, 60 seconds at most, and all of them together `hookTime`; those left then are told of in the error log. 1
/// also when there is no list; 0 with an error-log line. Leaves the process at nobody.
[[nodiscard]] int clear_brute_log_entries(const Config* conf, int hookTime = kClearHookTime);

}  // namespace zvtaskq
