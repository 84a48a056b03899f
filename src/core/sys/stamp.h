// Times that an earlier run, or another program, has stored.
#pragma once

namespace zvtaskq {

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
