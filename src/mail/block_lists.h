// The mail server's lists of what it has blocked, and since when.
#pragma once

namespace zvtaskq {

class ConfigFile;

/// Drops from a list (a pair an item: what is blocked, and since when, in seconds since the epoch) the items blocked
/// for more than `minutes`, and says so in the system log with `kind`, what the items are called. Those with a time
/// below 1 stay. Returns how many were dropped.
long long liftOldBlocks(ConfigFile& list, const char* kind, unsigned long long minutes);

}  // namespace zvtaskq
