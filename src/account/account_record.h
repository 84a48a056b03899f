// Where the data files of accounts stand, and reading them.
#pragma once

#include <string>

#include "core/config_file.h"

namespace zvtaskq {

enum class AccountType { unknown, user, reseller, admin };

/// A file of an account's folder below `userdata`, e.g. accountFile("bob", "user.conf"). `file` may be null for the
/// folder itself.
std::string accountFile(const char* account, const char* file);
/// A file of the server-wide folder (`admindir`).
std::string adminFile(const char* file);

/// Reads "user.conf" of an account into `record`. 0 when the name cannot be an account's or the record cannot be read;
/// the record's result says why.
[[nodiscard]] int readAccount(const char* account, ConfigFile& record);
/// The account's type by its record's `usertype`.
AccountType accountTypeOf(const ConfigFile& record);
/// The names of all accounts: of the folders of `userdata` that can be one. 0 when the folder cannot be read.
[[nodiscard]] int listAccounts(ListFile& names);
/// The file that maps every domain to its owner, and reading it: a pair a domain.
std::string domainOwnersFile();
[[nodiscard]] int readDomainOwners(ConfigFile& owners);
/// Reads the record of a domain of an account into `record`.
[[nodiscard]] int readDomain(const char* account, const char* domain, ConfigFile& record);

}  // namespace zvtaskq
