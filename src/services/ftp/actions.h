// What queue lines want of the FTP passwords.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows ftpActions();

}  // namespace zvtaskq
