// What each user has on a partition, counted file by file: for where no quota system keeps count.
#pragma once

#include <string>
#include <vector>

#include "tally/disk/quota_report.h"

namespace zvtaskq {

/// Puts into `used` what the users of the password database own below the folders: files, links and folders. Stays on
/// the file system of each folder, follows no link, counts once what has several names or is mounted in several places,
/// and needs the memory of an entry a user and what LinkedFiles needs. Who moves folders about meanwhile costs his own
/// figures. Works as root, and leaves the process at nobody. 0 with an error-log line when something could not be
/// looked at; the rest is counted.
[[nodiscard]] int countByOwner(const std::vector<std::string>& folders, SpaceByUser& used);

/// The same of these accounts alone, each in its home: what it owns elsewhere is not seen, and nobody else's home is
/// looked into. An account without a home has nothing.
[[nodiscard]] int countHomes(const std::vector<std::string>& accounts, SpaceByUser& used);

}  // namespace zvtaskq
