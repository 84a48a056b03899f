// Disk quotas of accounts, on `quota_partition` and `ext_quota_partitions`, by `setquota` or with `use_xfs_quota` by
// `xfs_quota`. With `disable_quota`, and where the program is not there, there are none to set, which is no failure.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

/// What one may use: megabytes, and files (only set with `inode`); 0 for as much as there is.
struct DiskQuota {
  double megabytes = 0;
  double inodes = 0;
};

/// The quota that an account's record grants: its `quota` and `inode`.
DiskQuota quotaOf(const ConfigFile& record, const char* account);

/// Sets the quota of a system account; the hard limit is `hard_quota_multiplier` times the soft one. 0 with "Error
/// setting quota to %d (inodes=%lld) for user %s : %s" in the error log and in `result`. May be called under any
/// identity, which is the same afterwards.
[[nodiscard]] int setQuota(const char* account, DiskQuota quota, Text& result);

/// Sets the quota of an account to what its record grants, under its lock.
[[nodiscard]] int setAccountQuota(const char* account, Text& result);

/// The row: the quota of one `user`, or of all, hundreds at a time; then the cached list of all users is queued.
int rewriteQuota(const Task& task);

}  // namespace zvtaskq
