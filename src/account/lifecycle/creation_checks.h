// Whether an account may be made.
#pragma once

#include "core/record/config_file.h"

namespace zvtaskq {

/// Whether the account that the record describes may come to be, whatever else is there. 0 with a line in `result`.
[[nodiscard]] int mayCreate(const ConfigFile& record, Text& result);

}  // namespace zvtaskq
