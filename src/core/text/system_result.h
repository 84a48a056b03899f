// The process-wide result text of the system operations that have no object of their own to keep one in.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// The text itself. The operations that use it (renameFile, createPath, pushOnTaskQueue) clear it at entry and append
/// their messages, each followed by "<br>\n".
Text& systemResult();

/// What the last of these operations said; never null. Valid until the next of them.
const char* getSysResult();

}  // namespace zvtaskq
