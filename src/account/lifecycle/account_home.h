// The home of an account that goes, and its system account.
#pragma once

#include "account/model/account_holder.h"

namespace zvtaskq {

/// Removes the account's home. Where the folder above is root's alone, the home is first moved into a folder there that
/// nobody can look into, so that the way is closed for whoever still runs and for who gets its user id next; then it is
/// removed as its user, and what he may not remove himself as root. More than `background_delete_size` megabytes, or a
/// minute of it, is left to a process of its own, which also clears what an earlier one left there. Elsewhere it is
/// removed in its place, as its user alone. Nothing is entered through a link or a mount.
///
/// A home that is a link, or somebody else's, stays: 0 with a line in `result`, as for what could not be removed. Works
/// under any identity, which is the same afterwards.
[[nodiscard]] int removeHome(const AccountHolder& holder, Text& result);

/// Deletes a system account by `userdel`. A process of his that ended a moment ago is waited for, a few seconds at
/// most: until whoever started it has noticed, the program takes it for one that runs. 0 with a line of `result`.
[[nodiscard]] int deleteSystemUser(const std::string& name, Text& result);

}  // namespace zvtaskq
