// What queue lines want of the life of accounts.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows lifecycleActions();

}  // namespace zvtaskq
