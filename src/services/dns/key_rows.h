// The rows about keys: those that sign mail, and those that sign zones.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

/// Makes the DKIM keys of `domain` or of all, with `rotate` new ones, and writes them into the zones. What takes more
/// than two minutes goes on in a later run.
int rewriteDkim(const Task& task);

/// Lets the name server sign the zones of `domain`, `domain0`, `domain1` and so on anew, or all that have keys.
int rewriteDnssec(const Task& task);

}  // namespace zvtaskq
