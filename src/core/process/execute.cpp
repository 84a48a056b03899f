#include "core/process/execute.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "core/process/child.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

/// What a child gets to do before its output is first looked at, in milliseconds.
constexpr int kSettleTime = 20;

ChildPlan planOf(const std::string& command, int maxOutput, int outputFd, int direct) {
  ChildPlan plan = direct ? ChildPlan::program(command) : ChildPlan::shell(command);
  if (direct) {
    const std::size_t slash = command.rfind('/');
    plan.arguments[0] = slash == std::string::npos ? command : command.substr(slash);
    plan.currentEnvironment = true;
  }
  const ChildPlan::Stream chosen = maxOutput > 0 ? ChildPlan::Stream::collect : ChildPlan::Stream::discard;
  plan.output = outputFd == 2 ? ChildPlan::Stream::inherit : chosen;
  plan.errors = outputFd == 2 || outputFd == 3 ? chosen : ChildPlan::Stream::inherit;
  if (maxOutput > 0) plan.settleTime = kSettleTime;
  return plan;
}

/// Runs the plan that the arguments make, changed by `change`.
template <class Change>
int carryOut(Text& command, int maxOutput, int outputFd, int direct, Change change) {
  debug(2500, "execute('%s', maxsize=%d, fd=%d, env=%d)", command.orEmpty(), maxOutput, outputFd, direct);
  ChildPlan plan = planOf(command.orEmpty(), maxOutput, outputFd, direct);
  change(plan);
  if (maxOutput > 0) command = "";
  const ChildResult result = runChild(plan);
  if (maxOutput > 0) command = Text::copyOf(std::string_view(result.output));
  return result.status;
}

std::string answer(const char* text) {
  std::string line = text;
  if (line.empty() || line.back() != '\n') line += '\n';
  return line;
}

}  // namespace

int execute(Text& command, int maxOutput, int outputFd, int direct) {
  return carryOut(command, maxOutput, outputFd, direct, [](ChildPlan&) {});
}

int execute(char*& command, int maxOutput, int outputFd, int direct) {
  Text text = Text::adopt(command);
  const int status = execute(text, maxOutput, outputFd, direct);
  command = text.release();
  return status;
}

int executestdin(Text& command, const char* input, int maxOutput, int outputFd, int direct) {
  return carryOut(command, maxOutput, outputFd, direct, [&](ChildPlan& plan) {
    if (input != nullptr) plan.inputs.emplace_back(input);
  });
}

int executeDBLstdin(Text& command, const char* input1, const char* input2, int maxOutput, int outputFd, int direct) {
  return executeTRPLstdin(command, input1, input2, nullptr, maxOutput, outputFd, direct);
}

int executeTRPLstdin(Text& command, const char* input1, const char* input2, const char* input3, int maxOutput,
                     int outputFd, int direct) {
  return carryOut(command, maxOutput, outputFd, direct, [&](ChildPlan& plan) {
    for (const char* input : {input1, input2, input3}) {
      if (input != nullptr) plan.inputs.push_back(answer(input));
    }
  });
}

int executeAsUser(const char* user, Text& command, int maxOutput, int outputFd, int direct) {
  const Ids ids = idsOf(user);
  if (ids.user == kUnknownId || ids.group == kUnknownId) {
    errorLog("executeAsUser(%s): unknown user, not running %s", user == nullptr ? "" : user, command.orEmpty());
    return -1;
  }
  return carryOut(command, maxOutput, outputFd, direct, [&](ChildPlan& plan) { plan.identity = ids; });
}

void nap(int milliseconds) {
  const timespec wait{milliseconds / 1000, milliseconds % 1000 * 1000000L};
  if (::nanosleep(&wait, nullptr) != 0) {
    debug(1000, "nap(%d ms): nanosleep error: %s", milliseconds, std::strerror(errno));
  }
}

}  // namespace zvtaskq
