// How long the programs of one account may keep everybody else waiting.
#pragma once

#include <chrono>
#include <string>

#include "core/process/child.h"

namespace zvtaskq {

/// The time for all programs that one step of a long task runs as the user of one account. That user can stop them, and
/// start them only to wait: when the time is used up, the rest of the step is given up, and the task goes on with the
/// next account. Programs that run as the panel's user or as root need none.
class TimeBudget {
 public:
  /// `account` is for the log. With 0 seconds or less there is no limit.
  TimeBudget(std::string account, int seconds);

  /// As `runChild`, within what is left of the time and within the plan's own limit. When nothing is left, nothing is
  /// started: the result then is that of a time-out. That it is used up is told once, in the error log.
  [[nodiscard]] ChildResult run(ChildPlan plan);
  /// Nothing more will be run.
  bool isSpent() const { return isSpent_; }

 private:
  void spend(std::chrono::steady_clock::duration time);

  std::string account_;
  int seconds_;
  std::chrono::steady_clock::duration left_;
  bool isSpent_ = false;
};

}  // namespace zvtaskq
