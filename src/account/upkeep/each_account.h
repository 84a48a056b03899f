// Doing something for one account after another.
#pragma once

#include <functional>

namespace zvtaskq {

/// Does `step` for the account `only`, or for all when that is null: each under its lock, which is waited for at most a
/// minute. `what` is the work in words, for the program location and for the error-log line "Unable to do <what> for
/// <account>: ..." about an account that there is not, or that another run works on. 0 when one of the steps, which
/// tell of it themselves, answered 0, or could not be done; the others are done. Leaves nobody.
[[nodiscard]] int forEachAccount(const char* only, const char* what,
                                 const std::function<int(const char* account)>& step);

}  // namespace zvtaskq
