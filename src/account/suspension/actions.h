// The queue lines about suspensions.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows suspensionActions();

}  // namespace zvtaskq
