// What is put right, or told, about settings that do not fit together or lie out of their range.
#pragma once

#include "core/config/settings.h"

namespace zvtaskq {

/// Checks settings that were just loaded from `record`, corrects them and tells on standard output, as debug output or
/// in the error log. Words for whoever asked for the settings go to `result`. 0 when two of them contradict each other
/// so that no reading is right.
[[nodiscard]] int checkSettings(Settings& settings, const ConfigFile& record, Text& result);

}  // namespace zvtaskq
