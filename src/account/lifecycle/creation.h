// Making an account.
#pragma once

#include "core/record/config_file.h"

namespace zvtaskq {

/// Makes the account that the record describes (`username`, `usertype`, `creator`, `domain`, `ip`, limits and all else
/// of "user.conf"; what belongs there and is missing is added): system account with its home, quota, mail domain,
/// address, data folder, its place in lists. `passwordHash` is what the system's password file takes, null or empty for
/// an account that nobody can log in to by a password yet. Lines are queued for its web configuration.
///
/// Refused, with a line in `result` and nothing done: names that cannot be, are taken (by an account, a system account,
/// with `check_group_on_user_create` a group, databases) or mean something else; a domain or address that is another's;
/// a creator that is no manager, or a reseller without enough left; a script that forbids it. A step that fails takes
/// back those before it. What a killed creation left is taken back by `finishCreations`, or by the next of that name.
///
/// May be called under any identity; leaves nobody.
[[nodiscard]] int createAccount(const ConfigFile& record, const char* passwordHash, Text& result);

/// Takes back what creations have left that were killed, or completes them. An account that another process works on
/// waits for the next time. What cannot be done is told once a day. Leaves nobody.
void finishCreations();
/// Nothing of the account's creation is to be taken back any more: what it took may be another's by now.
[[nodiscard]] int forgetCreation(const char* account, Text& result);

}  // namespace zvtaskq
