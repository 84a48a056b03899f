// What each account uses of the disk, as the quota system says.
#pragma once

#include <string>
#include <vector>

#include "core/record/config_file.h"

namespace zvtaskq {

class Config;

/// The two tables that a tally works with: account name to used space in blocks of 1024 bytes, and to used inodes.
struct QuotaTables {
  ConfigFile quotas{nullptr};
  ConfigFile inodes{nullptr};
};

/// The tables read last in this process.
QuotaTables& quotaTables();

/// Fills the tables, emptied first, from the quota system's report on `quota_partition` and `ext_quota_partitions` (the
/// programs `repquota`, or `xfs_quota` with `use_xfs_quota`), and logs who is over a limit. With quotas switched off
/// (`disable_quota`), and when the program is missing or reports on nobody, the partitions are counted file by file; of
/// `accounts`, unless there are none, their homes alone.
/// Leaves the process at nobody. 0 with an error-log line when neither gave a whole picture; what there is counts.
[[nodiscard]] int getAllQuotas(const Config* conf, ConfigFile& quotas, ConfigFile& inodes,
                               const std::vector<std::string>& accounts = {});

/// Bytes that an account uses by the table of blocks; 0 without a table or an entry.
double getDiskUsage(const ConfigFile* quotas, const char* name);
/// Inodes that an account uses by the table of inodes; 0 without a table or an entry.
long long getInodes(const ConfigFile* inodes, const char* name);

}  // namespace zvtaskq
