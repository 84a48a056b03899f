// What queue lines want restored.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows restoreActions();

}  // namespace zvtaskq
