// The one place where the lifecycle of accounts meets their databases.
//
// May be called under any identity, which is the same afterwards. 0 with a line in `result`, when something of it
// failed for good. A server that is not there has nothing to do; one that does not answer is told in the next run.
// Neither is a failure.
#pragma once

#include "account/model/suspension_notes.h"

namespace zvtaskq {

/// Keeps the account's database users out, and lets them in again but for those that were locked before: the notes,
/// which are on the disk already, are written again with these before the first is locked.
[[nodiscard]] int lockServices(const char* account, SuspensionNotes& notes, Text& result);
[[nodiscard]] int unlockServices(const char* account, SuspensionNotes& notes, Text& result);
/// Locks those of a suspended account whom something older has kept out in another way (`convertDatabaseLocks`). 0 also
/// when the server does not answer, which `answers` then tells.
[[nodiscard]] int convertSuspendedDatabases(const char* account, SuspensionNotes& notes, bool& answers, Text& result);
/// Drops his databases and their users.
[[nodiscard]] int dropDatabasesOf(const char* account, Text& result);
/// Whether there are none yet that would belong to a new account of that name.
[[nodiscard]] int hasNoDatabases(const char* account, Text& result);
/// Does what the server did not answer to in earlier runs.
void finishDatabaseWork();

}  // namespace zvtaskq
