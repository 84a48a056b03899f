// Which logs of the web server the brute-force monitor reads.
#pragma once

namespace zvtaskq {

class Config;
class ConfigFile;
class ListFile;

/// Adds to `out` the web logs to be scanned: the pairs of `scanState` (the record of how far each log was read) whose
/// names lie in the web server's log folder.
///
/// With `brute_force_scan_apache_logs` 2 or more, and more than `brute_force_apache_log_list_update_interval` minutes
/// since `last_refresh`, the folder's logs join `scanState` before: the files that end in ".log", but not in
/// ".error.log", and whose paths have at most 511 bytes and fit a record. Those it has keep their values.
/// `last_refresh` becomes now, also when the folder cannot be read (error log). The refreshed record is the caller's to
/// write: 1 when there was a refresh, 0 when not. Leaves the process at nobody.
[[nodiscard]] int get_apache_logs_from_brute_conf(const Config* conf, ConfigFile& scanState, ListFile& out);

}  // namespace zvtaskq
