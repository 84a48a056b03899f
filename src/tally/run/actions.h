// What queue lines want tallied, set back or cached.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows tallyActions();

}  // namespace zvtaskq
