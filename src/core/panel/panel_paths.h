// Where the panel's data files stand, by the configuration in force.
#pragma once

#include <string>

namespace zvtaskq {

/// A file of an account's folder below `userdata`, e.g. accountFile("bob", "user.conf"). `file` may be null for the
/// folder itself.
std::string accountFile(const char* account, const char* file);
/// A file of the server-wide folder (`admindir`).
std::string adminFile(const char* file);
/// The file that maps every domain to its owner.
std::string domainOwnersFile();

}  // namespace zvtaskq
