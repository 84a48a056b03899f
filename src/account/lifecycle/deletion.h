// Deleting an account with all that is his.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

/// Deletes the account: what he runs, his databases, FTP accounts, mail, home, system account, addresses, his data
/// folder, and last his place in all lists. Lines are queued that take him out of the web configuration, and his
/// domains out of the name server unless `leaveDns`. Each step is taken even when one fails: `result` has a line for
/// what stayed, and 0 is returned; the data folder stays then too, so that another deletion finds what is left. One
/// that is left in lists alone is completed.
///
/// Not begun, with one line: in a demonstration; the account is unknown, the last administrator, or a reseller with
/// users; a script forbids it; `backup_before_delete` is set, since what cannot be backed up is not deleted.
///
/// May be called under any identity; leaves nobody.
[[nodiscard]] int deleteAccount(const char* account, bool leaveDns, Text& result);

/// The row: deletes the selected accounts for the one that asks, and tells it how that went.
int deleteAccounts(const Task& task);

}  // namespace zvtaskq
