// Reading the data files of accounts.
#pragma once

#include <string>
#include <vector>

#include "core/record/config_file.h"

namespace zvtaskq {

struct Task;

enum class AccountType { unknown, user, reseller, admin };

/// Reads "user.conf" of an account into `record`. 0 when the name cannot be an account's, or the record cannot be read,
/// holds nothing, or is larger than any account's; the record's result says why.
[[nodiscard]] int readAccount(const char* account, ConfigFile& record);
/// Reads another record of an account's folder, such as "user.usage", in the same way; one that is not there, and one
/// that holds nothing, is empty.
[[nodiscard]] int readAccountFile(const char* account, const char* file, ConfigFile& record);
/// Sets a pair of such a record, or removes it with a null value, under the record's lock. 0 with an error-log line.
[[nodiscard]] int setAccountValue(const char* account, const char* file, const char* key, const char* value);
/// Reads a list of an account's folder, such as "ip.list", in the same way.
[[nodiscard]] int readAccountList(const char* account, const char* file, ListFile& list);
/// Reads the account that a backup or restore is done for: the line's `owner`, a reseller or an administrator by its
/// `type`. 0 with the error-log line "Cannot read data for Reseller %s : %s" or "Cannot read data for Admin %s : %s".
[[nodiscard]] int readOwner(const Task& task, ConfigFile& record);
/// The account's type by its record's `usertype`.
AccountType accountTypeOf(const ConfigFile& record);
/// The names of all accounts: of the folders of `userdata` that can be one. 0 when the folder cannot be read.
[[nodiscard]] int listAccounts(ListFile& names);
/// Reads the table of domain owners (`domainOwnersFile`): a pair a domain.
[[nodiscard]] int readDomainOwners(ConfigFile& owners);
/// Whether the table of owners gives the domain to another account, which has it: it is that one's then, whatever a
/// list of this one says.
bool isOthersDomain(const ConfigFile& owners, const char* account, const char* domain);
/// Reads the record of a domain of an account into `record`.
[[nodiscard]] int readDomain(const char* account, const char* domain, ConfigFile& record);
/// The domains of an account, by its "domains.list"; a line that is no domain name is left out with an error-log line.
/// 0 when the list cannot be read, with why in `result`; an account without one has no domain.
[[nodiscard]] int readDomains(const char* account, std::vector<std::string>& domains, Text& result);
/// The subdomains of a domain, by its ".subdomains": names without the domain. A line that cannot be one is left out
/// with an error-log line. 0 with "Unable to open %s" there when the list cannot be read.
[[nodiscard]] int readSubdomains(const char* account, const char* domain, std::vector<std::string>& subdomains);
/// The pointers of a domain, by its ".pointers": the name, and "redirect" for one that is no alias. A missing list has
/// none. 0 with an error-log line when it cannot be read.
[[nodiscard]] int readPointers(const char* account, const char* domain, ConfigFile& pointers);
/// The path of a file of a domain in its account's data folder: domainFile("bob", "bob.example", "usage").
std::string domainFile(const char* account, const char* domain, const char* ending);

}  // namespace zvtaskq
