// A clock that stands still.
#pragma once

namespace zvtaskq::test {

/// While it lives, `time` answers `now` (seconds since the epoch).
class FixedClock {
 public:
  explicit FixedClock(long long now);
  ~FixedClock();
  FixedClock(const FixedClock&) = delete;
  FixedClock& operator=(const FixedClock&) = delete;
};

}  // namespace zvtaskq::test
