// Stopping an account or one of its domains, and giving everything back as it was.
//
// What stops: log-ins (the hashes of the system, of mailboxes and FTP accounts are marked, and the system account
// expires), database users, cron jobs, what he has running; his web pages change by a queued line. Files stay.
//
// All may be called under any identity, and leave nobody. They take the account's lock. 1 also when it was so before.
// 0 with lines in `result`: a suspension then is as it was before; an activation that could not give back all leaves
// the record as it is, so that the next completes it. Either completes what another that was killed began.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

enum class SuspendedBy { person, tally };

/// `reason`: words joined by ",", which are added to those that are there. By a person the record's `account` becomes
/// OFF, and only a person ends it.
[[nodiscard]] int suspendAccount(const char* account, const char* reason, SuspendedBy by, Text& result);
/// 0 for the tally when a person has suspended the account.
[[nodiscard]] int activateAccount(const char* account, SuspendedBy by, Text& result);
/// Takes reasons back, and ends the suspension when none is left and no person has made it. An account that has none of
/// them is left alone.
[[nodiscard]] int dropSuspensionReasons(const char* account, const char* reasons, Text& result);

/// The mailboxes of one domain alone, by its record.
[[nodiscard]] int suspendDomain(const char* account, const char* domain, const char* reason, Text& result);
/// Takes the reasons back, null or empty for all, and ends the domain's suspension when none is left. What the account
/// itself is suspended for stays stopped.
[[nodiscard]] int activateDomain(const char* account, const char* domain, const char* reason, Text& result);

}  // namespace zvtaskq
