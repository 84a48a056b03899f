// What queue lines want of mail accounts.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows mailActions();

}  // namespace zvtaskq
