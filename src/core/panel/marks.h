// Marks that outlive a run: when something was last done or said, and about what. One file each in the state folder.
#pragma once

#include <string_view>

namespace zvtaskq {

/// Seconds of a day, the usual interval of what is done or said again.
inline constexpr long long kMarkInterval = 86400;

/// Whether the mark of that name was set longer than `interval` seconds ago, about something else, or never; if so it
/// is set. One from the future counts as never set, with an error-log line. `name` is a plain file name; `about` at
/// most a few hundred bytes without a line feed. Works under any identity and gives it back.
bool isDueAgain(const char* name, std::string_view about = {}, long long interval = kMarkInterval);
/// Sets the mark. When it cannot be written the error log says so, and it is due the next time.
void setMark(const char* name, std::string_view about = {});

}  // namespace zvtaskq
