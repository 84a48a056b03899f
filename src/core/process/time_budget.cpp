#include "core/process/time_budget.h"

#include <utility>

#include "core/sys/log.h"

namespace zvtaskq {

using Clock = std::chrono::steady_clock;

TimeBudget::TimeBudget(std::string account, int seconds)
    : account_(std::move(account)), seconds_(seconds), left_(std::chrono::seconds(seconds)) {}

ChildResult TimeBudget::run(ChildPlan plan) {
  if (isSpent_) {
    ChildResult nothing;
    nothing.timedOut = true;
    return nothing;
  }
  if (seconds_ <= 0) return runChild(plan);
  const auto most = static_cast<int>(std::chrono::ceil<std::chrono::seconds>(left_).count());
  if (plan.timeLimit <= 0 || plan.timeLimit > most) plan.timeLimit = most;
  const Clock::time_point start = Clock::now();
  ChildResult result = runChild(plan);
  spend(Clock::now() - start);
  return result;
}

void TimeBudget::spend(Clock::duration time) {
  left_ -= time;
  isSpent_ = left_ <= Clock::duration::zero();
  if (!isSpent_) return;
  errorLog("The programs of %s have used up their %d seconds (account_time_limit). Giving up the rest of this step.",
           account_.c_str(), seconds_);
}

}  // namespace zvtaskq
