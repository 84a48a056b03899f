// What queue lines want told to the administrators.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows notifyActions();

}  // namespace zvtaskq
