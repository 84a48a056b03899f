// What queue lines want backed up.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows backupActions();

}  // namespace zvtaskq
