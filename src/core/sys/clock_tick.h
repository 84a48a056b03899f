// Looking at something no more often than once a tick.
#pragma once

#include <ctime>

namespace zvtaskq {

/// A tick of the system's coarse clock, a few milliseconds, for who looks at a file that seldom changes.
class ClockTick {
 public:
  /// Whether it is another tick than the last time this was asked.
  bool hasPassed() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    if (now.tv_sec == last_.tv_sec && now.tv_nsec == last_.tv_nsec) return false;
    last_ = now;
    return true;
  }

 private:
  timespec last_{};
};

}  // namespace zvtaskq
