// What queue lines want kept right about the accounts that there are.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows upkeepActions();

}  // namespace zvtaskq
