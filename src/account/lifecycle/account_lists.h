// The lists that name an account, and the addresses it uses.
//
// All may be called under any identity, which is the same afterwards; 0 comes with lines in `result`.
#pragma once

#include "account/model/account_record.h"

namespace zvtaskq {

/// Puts the account where accounts of its type are listed: a user in "users.list" of his creator, a reseller in
/// "reseller.list", an administrator in "admin.list".
[[nodiscard]] int listAccount(const ConfigFile& record, Text& result);
/// Takes its name out of every such list, whoever's it is.
[[nodiscard]] int unlistAccount(const char* account, Text& result);
/// Whether one of them names it.
bool isListedAccount(const char* account);
/// Whether the account is named in "users.list" of that creator.
bool isUserOf(const char* creator, const char* account);
/// Whether there is no administrator besides this account.
bool isLastAdministrator(const char* account);

/// Whether a new account may use that address; a free one becomes its own by `takeAddress`.
[[nodiscard]] int mayUseAddress(const char* address, const char* creator, Text& result);
[[nodiscard]] int takeAddress(const char* address, Text& result);
/// Frees the address that was an account's own, and those that were given to a reseller.
[[nodiscard]] int releaseAddresses(const char* account, const char* address, Text& result);

/// Whether a creator that is a reseller may give away what the record grants: all that he gave away, and this, within
/// his own limits, unless he may oversell.
[[nodiscard]] int mayAllocate(const ConfigFile& record, Text& result);
/// Adds what the record grants to the creator's "reseller.allocation", or takes it off.
[[nodiscard]] int allocate(const ConfigFile& record, bool add, Text& result);

}  // namespace zvtaskq
