// The end of an account's PHP.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// Takes the account's pools away, and has PHP-FPM forget them before it could start anything more for the account.
/// Waits for nothing that is under way. 0 with the reason in `result`. Works under any identity, which is the same
/// afterwards.
[[nodiscard]] int closePhpPools(const char* account, Text& result);

}  // namespace zvtaskq
