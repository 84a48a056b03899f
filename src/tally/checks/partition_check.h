// The watch over full partitions.
#pragma once

#include <string>

namespace zvtaskq {

class Config;
class ConfigFile;
class ListFile;

/// Tells the administrators which of the watched partitions are used to `partition_usage_threshold` percent or more:
/// with `check_partitions` 2 every time, else at most once a day. The watched ones are the mount points of the list
/// "partition_check.list" among the templates. Nothing in demonstration mode and with `check_partitions` 0. Every
/// failure is told in the error log and ends the check. Leaves the process at nobody.
void check_partition_usage(const Config* conf);

/// A line "95% - /home" for every mount point of the list, in its order, that the usage table (core/panel/partitions.h)
/// has at the threshold (percent) or above.
std::string fullPartitions(const ListFile& watched, const ConfigFile& usage, int threshold);

}  // namespace zvtaskq
