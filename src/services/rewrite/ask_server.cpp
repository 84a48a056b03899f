#include "services/rewrite/ask_server.h"

#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr int kTimeLimit = 300;
constexpr int kNotStarted = 127;

bool isJudgment(const ChildResult& child) {
  return !child.timedOut && child.status > 0 && child.status != kCannotAsk && child.status != kNotStarted;
}

}  // namespace

Verdict askServer(ChildPlan plan, const std::string& program, std::string& words) {
  plan.errors = ChildPlan::Stream::collect;
  plan.timeLimit = kTimeLimit;
  const ChildResult child = runChild(plan);
  if (child.status == 0 && !child.timedOut) return Verdict::good;
  if (isJudgment(child)) {
    words = child.output;
    return Verdict::bad;
  }
  words = joined(program, child.timedOut ? " does not end" : " cannot be run", "\n", child.output);
  return Verdict::unknown;
}

}  // namespace zvtaskq
