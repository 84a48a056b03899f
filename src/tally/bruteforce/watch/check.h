// The brute-force monitor: searches the services' logs for failed log-ins, counts them, and tells the administrators.
#pragma once

namespace zvtaskq {

class Config;

/// One scan of all logs, when `brute_force_log_scanner` asks for it and this is no demonstration: what is new in them
/// is counted for its address and its account, old counts are dropped, administrators are told of those at their limit,
/// and addresses that have been blocked long enough are unblocked. Only one scan runs at a time. Faults go to the error
/// log. Leaves the process at nobody.
void check_brute_force_logs(const Config* conf);

}  // namespace zvtaskq
