// The watch over the machine's load.
#pragma once

namespace zvtaskq {

class Config;

/// Tells the administrators when the load average of `check_load_minute` minutes is above `check_load`, at most once in
/// `load_notice_interval` minutes. The administrator's scripts "load_spike_notice_pre.sh", whose failure suppresses the
/// notice, and "load_spike_notice_post.sh" run around it. Every failure is told in the error log and ends the check.
/// Leaves the process at nobody.
void check_system_load(const Config* conf);

}  // namespace zvtaskq
