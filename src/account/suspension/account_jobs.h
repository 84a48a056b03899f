// What runs for an account: his crontab, what waits in the queue of "at", and his processes.
//
// All of these may be called under any identity, which is the same afterwards.
#pragma once

#include <string>

#include "account/model/account_holder.h"

namespace zvtaskq {

/// Whether there is an installed crontab, and its lines. No system account and no cron have none. 0 with a line in
/// `result` when it cannot be told.
[[nodiscard]] int readCrontab(const AccountHolder& holder, bool& exists, std::string& lines, Text& result);

/// Brings "crontab.conf" of the data folder up to date from the installed crontab, when there is one, and removes that.
/// One of more than 16 MB is removed with an error-log line, and not kept: it is there to be in the way.
[[nodiscard]] int holdCrontab(const AccountHolder& holder, Text& result);
/// Installs "crontab.conf".
[[nodiscard]] int releaseCrontab(const AccountHolder& holder, Text& result);
/// Removes the installed crontab.
[[nodiscard]] int removeCrontab(const AccountHolder& holder, Text& result);

/// Removes what he has waiting in the queue of "at": it would run as whoever gets his user id next.
[[nodiscard]] int removeAtJobs(const AccountHolder& holder, Text& result);

/// Ends all processes of the account's system user, and the FTP sessions that work as him: asks them, waits a moment,
/// kills what is left, in a bounded number of rounds. Never those of root, of the system's own users and of nobody. 0
/// with an error-log line when there are some even then.
int endProcesses(const AccountHolder& holder);

}  // namespace zvtaskq
