// Lifting the blocks on addresses that have stood long enough.
#pragma once

namespace zvtaskq {

class Config;

/// Unblocks the addresses that were blocked `unblock_brute_ip_time` minutes ago or longer, by one run of a script.
/// Nothing with 0 and below.
///
/// Two scripts of the panel, which run as root, do the work; one in "scripts/custom" wins over the one of its name in
/// "scripts". "show_blocked_ips.sh" prints one URL-encoded line, at most 16 MB: `havedata=1`, and for every blocked
/// address a pair of it and a URL-encoded record with `dateblocked`, the time of the block in seconds since the epoch:
///
///     havedata=1&192.0.2.1=dateblocked%3D1800000000&2001%3Adb8%3A%3A1=dateblocked%3D1800000060
///
/// A range stands there in its CIDR form ("192.0.2.0/24"). An entry that is neither address nor range, or has no such
/// time, stays blocked. "unblock_ip.sh" gets the variable `ip`: the addresses, separated by commas; the longest blocked
/// 1000 of them, so that the next run lifts the rest. Each script may take 120 seconds.
///
/// 1 also when there is nothing to unblock; 0 with an error-log line, for the same reason once a day. May be called
/// under any identity, which is the same afterwards.
[[nodiscard]] int unblock_bfm_ips(const Config* conf);

}  // namespace zvtaskq
