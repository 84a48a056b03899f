// Requests that make and change things of an account: each names it in `account`, and is refused when they would not be
// that account's by the rules. 0 when refused, by them or by the server.
#pragma once

namespace zvtaskq {

struct Command;

/// Makes the `database`; or the `user` from `host`, with `password`, or with `hash`, what the server made of one.
[[nodiscard]] int create(const Command& command);
/// Gives a `user` those `privileges` on a `database` and no others, all that he may have when there are none named.
[[nodiscard]] int grant(const Command& command);
/// Takes from him all that he has there.
[[nodiscard]] int revoke(const Command& command);
/// Gives a `user` another `password` or `hash`, and ends his sessions.
[[nodiscard]] int setPassword(const Command& command);
/// Gives a `database`, or a `user` from `host`, to the account `to_account` under the name `to`, with all grants. What
/// a database holds besides tables would not come along: it is refused then. May be repeated when it was cut short.
[[nodiscard]] int rename(const Command& command);

}  // namespace zvtaskq
