// The traffic of the web sites below "~account", from the web server's one log of them.
#pragma once

#include <string_view>

namespace zvtaskq {

/// Bills the traffic in "/var/log/httpd/homedir.log" to the accounts: one line of `type` "homedir" in the
/// `bandwidth.tally` of each. Then rotates the log (copied and emptied, for the web server keeps it open; with one
/// log to keep, which it is itself, emptied alone). What was written between the reading and the emptying is billed
/// too, and nothing is billed twice when a run is killed on the way or the log cannot be rotated.
///
/// Works as root, and leaves the process at nobody. 0 with an error-log line when the log is missing or cannot be read,
/// and when nothing may be billed (TrafficLedger).
[[nodiscard]] int parseHomeDirBandwidth();

/// What a line of that log says.
struct HomeTraffic {
  unsigned long long bytes = 0;
  std::string_view account;
};

/// Takes a line (without its line feed) apart: the bytes up to the first blank or tab, and the name behind the first
/// "~", up to a blank, a tab, "/" or "\". False for a line without them, for one that begins with "-", and for a name
/// that no account can have. A line is looked at up to its 204,800th byte.
bool readHomeTraffic(std::string_view line, HomeTraffic& out);

}  // namespace zvtaskq
