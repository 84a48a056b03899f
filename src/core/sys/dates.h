// Points in time that people wrote down.
#pragma once

#include <optional>

namespace zvtaskq {

/// The second, since the epoch, of a local date and time. `month` is a number or the first three letters of its name;
/// `time` is "HH", "HH:MM" or "HH:MM:SS" (up to "24:00:00"), null or empty is midnight. Blanks around them do not
/// count. Nothing when one of them is null or empty, or when there is no such day or time.
std::optional<long long> getTimeFrom(const char* year, const char* month, const char* day, const char* time);

}  // namespace zvtaskq
