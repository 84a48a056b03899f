#include "runner/queue/handover_lock.h"

#include <sys/file.h>

#include <cerrno>

#include "core/sys/fail_point.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {
constexpr const char* kPath = "/run/zvtaskq.queue.lock";
constexpr int kPause = 5;
constexpr int kTries = 10'000 / kPause;
}  // namespace

HandoverLock::HandoverLock() {
  const FailScope scope("handover");
  Descriptor file(sys::open(kPath, O_RDWR | O_CREAT | O_NOFOLLOW, 0600));
  for (int i = 0; file && i < kTries; ++i) {
    if (sys::flockNow(file.get(), LOCK_EX) == 0) {
      file_ = std::move(file);
      return;
    }
    if (errno != EWOULDBLOCK) return;
    sleepSafely(kPause);
  }
}

}  // namespace zvtaskq
