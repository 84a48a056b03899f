// The end of a month: what was counted of it begins anew.
#pragma once

namespace zvtaskq {

class Config;

/// What becomes of the tally files: their lines go to those of their month ("bandwidth.tally.2026-11", of which the
/// newest 24 stay), or are dropped.
enum class History { keep, drop };

// Both set the traffic and the deliveries of the usage records back to 0, forget warnings and the disk space noted for
// domains, and end suspensions for traffic, of accounts and of domains, unless another reason is left or a person
// suspended. Byte logs that are not billed yet stay. Each account is locked while it is worked on. They work under any
// identity and give it back. 0 with error-log lines when something could not be done; the rest is.

/// All users, resellers, administrators, and the server.
[[nodiscard]] int resetUsage(const Config& conf, History history);
/// The records of one account.
[[nodiscard]] int resetUsageOf(const Config& conf, const char* account, History history);

}  // namespace zvtaskq
