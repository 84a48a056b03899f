// What queue lines want of the web servers' configuration.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows webActions();

}  // namespace zvtaskq
