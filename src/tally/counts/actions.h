// What queue lines want of the list of all accounts.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows cacheActions();

}  // namespace zvtaskq
