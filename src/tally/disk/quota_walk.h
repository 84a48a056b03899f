// What each user has on a partition, counted file by file: for where no quota system keeps count.
#pragma once

#include <string>
#include <vector>

#include "tally/disk/quota_report.h"

namespace zvtaskq {

/// Puts into `used` what the users of the password database own below the folders: files, links and folders. Stays on
/// the file system of each folder, follows no link, counts a file with several names once, and needs the memory of an
/// entry a user and what LinkedFiles needs. Works as root, and leaves the process at nobody. 0 with an error-log line
/// when something could not be looked at; the rest is counted.
[[nodiscard]] int countByOwner(const std::vector<std::string>& folders, SpaceByUser& used);

}  // namespace zvtaskq
