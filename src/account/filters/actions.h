// What queue lines want of the accounts' mail filters.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows filterActions();

}  // namespace zvtaskq
