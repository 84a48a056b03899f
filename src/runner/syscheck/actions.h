// The queue lines of the self-check.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows syscheckActions();

}  // namespace zvtaskq
