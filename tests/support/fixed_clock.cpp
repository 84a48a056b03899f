#include "support/fixed_clock.h"

#include <ctime>

namespace {
long long fixedNow = -1;
}

/// Found before the C library's own by everything that is linked into a test program.
extern "C" std::time_t time(std::time_t* into) noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const std::time_t answer = fixedNow >= 0 ? static_cast<std::time_t>(fixedNow) : now.tv_sec;
  if (into != nullptr) *into = answer;
  return answer;
}

namespace zvtaskq::test {

FixedClock::FixedClock(long long now) {
  fixedNow = now;
}
FixedClock::~FixedClock() {
  fixedNow = -1;
}

}  // namespace zvtaskq::test
