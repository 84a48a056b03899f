// The upkeep passes that keep the panel's security records short.
#pragma once

namespace zvtaskq {

/// Drops failed log-ins older than `brute_force_time_limit` seconds from "login.hist".
void clearOldLoginAttempts();
/// Drops addresses blacklisted longer than `clear_blacklist_ip_time` minutes ago from the IP blacklist; those without a
/// time stay.
void clear_old_blacklisted_ips();
/// Drops password-reset requests older than two hours, when `lost_password` is on.
void clearOldPasswordResetRequests();

}  // namespace zvtaskq
