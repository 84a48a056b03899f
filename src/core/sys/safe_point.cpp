#include "core/sys/safe_point.h"

#include <cerrno>
#include <ctime>

namespace zvtaskq {

namespace {
void (*chosenAction)() = nullptr;
}

void setSafePointAction(void (*action)()) {
  chosenAction = action;
}

void atSafePoint() {
  if (chosenAction != nullptr) chosenAction();
}

void sleepSafely(int milliseconds) {
  timespec left{milliseconds / 1000, (milliseconds % 1000) * 1'000'000L};
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) atSafePoint();
  atSafePoint();
}

}  // namespace zvtaskq
