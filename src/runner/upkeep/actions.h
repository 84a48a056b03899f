// What queue lines want of the panel's upkeep.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows panelActions();

}  // namespace zvtaskq
