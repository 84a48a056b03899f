// What the administrator's list of all accounts shows of one of them.
#pragma once

#include <string>

namespace zvtaskq {

/// The record of an account, URL-encoded, from its data folder: `bandwidth`, `quota` and `vdomains` as used, " / ",
/// limit; `suspended` "Yes" or "No"; `suspended_reason`, `list` (the domains) and `ips` joined by "<br>"; `creator`,
/// `default` (the main domain), `ip`, `type` ("user", or "reseller" for whoever has users),
/// `email_deliveries_outgoing`; `package`, which is "custom" for an account without one, with `original_package` where
/// that is known; and a `pointer_<name>` with its domain for every domain pointer.
///
/// Reads without locks, as the panel's user, and gives back the identity it finds. 0 with "Unable to read user %s's
/// data files" in the error log when there is no record to be made.
[[nodiscard]] int makeListRecord(const char* account, std::string& record);

}  // namespace zvtaskq
