// Reading the data files of accounts.
#pragma once

#include "core/record/config_file.h"

namespace zvtaskq {

struct Task;

enum class AccountType { unknown, user, reseller, admin };

/// Reads "user.conf" of an account into `record`. 0 when the name cannot be an account's or the record cannot be read;
/// the record's result says why.
[[nodiscard]] int readAccount(const char* account, ConfigFile& record);
/// Reads the account that a backup or restore is done for: the line's `owner`, a reseller or an administrator by its
/// `type`. 0 with the error-log line "Cannot read data for Reseller %s : %s" or "Cannot read data for Admin %s : %s".
[[nodiscard]] int readOwner(const Task& task, ConfigFile& record);
/// The account's type by its record's `usertype`.
AccountType accountTypeOf(const ConfigFile& record);
/// The names of all accounts: of the folders of `userdata` that can be one. 0 when the folder cannot be read.
[[nodiscard]] int listAccounts(ListFile& names);
/// Reads the table of domain owners (`domainOwnersFile`): a pair a domain.
[[nodiscard]] int readDomainOwners(ConfigFile& owners);
/// Reads the record of a domain of an account into `record`.
[[nodiscard]] int readDomain(const char* account, const char* domain, ConfigFile& record);

}  // namespace zvtaskq
