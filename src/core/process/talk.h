// Feeding a child, collecting what it says, and watching the clock, all at once. Only core/process/child.cpp uses this.
#pragma once

#include <chrono>

#include "core/process/child.h"

namespace zvtaskq {

/// Kills a child and all that is in its group, whoever it has become. Leaves the identity of this process as it was.
void killGroup(pid_t pid);

class ChildTalk {
 public:
  /// Both must outlive the talk.
  ChildTalk(Child& child, ChildResult& result);

  /// Returns when the child has ended and its output is read to the end (or was held open too long), or when nothing
  /// is left to do but to wait for it. 0 when it outlived even being killed, and is to be left behind.
  [[nodiscard]] int run();

 private:
  using Clock = std::chrono::steady_clock;

  bool isOver() const;
  int pollOnce();
  int timeout() const;
  void feed();
  void collect();
  void readReports();
  void noticeEnd(bool pidfdIsReady);
  int watchClock();

  Child& child_;
  ChildResult& result_;
  /// Readable once the child has ended; not open on kernels without it.
  Descriptor ended_;
  bool hasEnded_ = false;
  bool tellsOfCut_ = true;
  std::size_t input_ = 0;
  std::size_t fed_ = 0;
  /// When something must be done about its taking so long; the far end of time when there is no limit.
  Clock::time_point deadline_ = Clock::time_point::max();
};

}  // namespace zvtaskq
