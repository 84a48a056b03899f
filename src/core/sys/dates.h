// Points in time that people wrote down, or that an earlier run or another program has stored.
#pragma once

#include <optional>

namespace zvtaskq {

/// The second, since the epoch, of a local date and time. `month` is a number or the first three letters of its name;
/// `time` is "HH", "HH:MM" or "HH:MM:SS" (up to "24:00:00"), null or empty is midnight. Blanks around them do not
/// count. Nothing when one of them is null or empty, or when there is no such day or time.
std::optional<long long> getTimeFrom(const char* year, const char* month, const char* day, const char* time);

struct StampAge {
  /// Seconds since the stamp; since the epoch for one that counts as unset.
  long long seconds;
  /// It lies in the future: stored before the clock was put back, or damaged. It counts as unset, so that nothing waits
  /// until the clock has caught up. Whoever stored it is to put it right and say so.
  bool isAhead;
};

/// How old a stamp (seconds since the epoch) is at `now`. Up to `slack` seconds ahead count as now: clocks of one
/// machine's programs may differ by a moment.
inline StampAge ageOf(long long stamp, long long now, long long slack = 0) {
  if (stamp < 0 || stamp > now + slack) return {now, true};
  return {stamp > now ? 0 : now - stamp, false};
}

}  // namespace zvtaskq
