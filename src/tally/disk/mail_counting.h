// How mail goes into the tally: what is counted of it, and its usage files.
#pragma once

#include <string_view>

namespace zvtaskq {

class Config;

/// Runs the administrator's script "scripts/custom/rotate_email_usage.sh" of the panel, or when there is none the stock
/// one "scripts/rotate_email_usage.sh", as root. A failure is told in the error log. Leaves the process at nobody.
void rotate_email_usage(const Config* conf);

/// 1 when mail stores are counted on top of the home quota, 0 when not: by `count_email_usage` (1 they are, 2 they are
/// not), and with 0 there by how the disk is divided. With one partition at most, and with quotas on "/" unless "/var"
/// is a partition of its own, mail is in the quota already; otherwise it is not.
int countEmail(const Config* conf);

/// How the disk is divided.
struct Partitions {
  int count = 0;
  bool hasVar = false;
};

/// Counts the partitions in a table as /proc/self/mounts has it: what holds files on a device or another machine, each
/// once however often it is mounted. System areas in memory are none.
Partitions partitionsIn(std::string_view table);

/// The rule of countEmail for the mode and the partition with quotas (null counts as empty).
int countEmailFor(int mode, const char* quotaPartition, const Partitions& partitions);

}  // namespace zvtaskq
