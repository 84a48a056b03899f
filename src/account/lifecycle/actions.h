// What queue lines want of the accounts themselves.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows accountActions();

}  // namespace zvtaskq
