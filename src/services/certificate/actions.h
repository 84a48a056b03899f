// What queue lines want of certificates.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows certificateActions();

}  // namespace zvtaskq
