#include "services/certificate/helper.h"

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

constexpr int kTimeLimit = 300;
constexpr int kMostDeaths = 40;
constexpr const char* kHelper = "/libexec/zvcert";

using TakeAnswer = std::function<void(std::size_t which, const ConfigFile& answer)>;

/// Hands over the whole lines of an output as the answers from `first` on; their number.
std::size_t takeAnswers(std::string_view output, std::size_t most, std::size_t first, const TakeAnswer& take) {
  std::string_view line;
  std::size_t answered = 0;
  ConfigFile answer(nullptr);
  while (answered < most && nextLine(output, line)) {
    answer.empty();
    answer.fillFromPost(line);
    take(first + answered++, answer);
  }
  return answered;
}

void takeFailure(std::size_t which, const char* error, const TakeAnswer& take) {
  ConfigFile answer(nullptr);
  answer.setParam("result", "failed");
  answer.setParam("error", error);
  take(which, answer);
}

/// It ended by itself, before it had answered to all.
bool hasDied(const ChildResult& child) {
  constexpr int kNotStarted = 127;
  return !child.timedOut && child.status > 0 && child.status != kNotStarted;
}

}  // namespace

std::string certificateRequest(const char* key, std::string_view value) {
  std::string request;
  addPair(request, key, value);
  return request;
}

void askCertificateHelper(std::vector<std::string> requests,
                          const std::function<void(std::size_t which, const ConfigFile& answer)>& take) {
  if (requests.empty()) return;
  const AsUser panel(kPanelUser);
  ChildPlan plan = ChildPlan::program(joined(sys_conf->serverpath, kHelper));
  plan.timeLimit = kTimeLimit;
  plan.inputs = std::move(requests);
  for (std::string& request : plan.inputs) request += '\n';
  std::size_t done = 0;
  bool diedOnFirst = false;
  for (int deaths = 0; !plan.inputs.empty(); ++deaths) {
    const ChildResult child = runChild(plan);
    const std::size_t answered = takeAnswers(child.output, plan.inputs.size(), done, take);
    done += answered;
    plan.inputs.erase(plan.inputs.begin(), plan.inputs.begin() + static_cast<std::ptrdiff_t>(answered));
    if (plan.inputs.empty()) return;
    errorLog("%s: no answer about %zu certificates; exit status %d", plan.path.c_str(), plan.inputs.size(),
             child.status);
    if (!hasDied(child) || deaths >= kMostDeaths) break;
    // Once may be an accident, and nothing of the request's.
    if (diedOnFirst && answered == 0) {
      takeFailure(done++, kDeadly, take);
      plan.inputs.erase(plan.inputs.begin());
      diedOnFirst = false;
    } else {
      diedOnFirst = true;
    }
  }
  for (std::size_t i = 0; i < plan.inputs.size(); ++i) takeFailure(done + i, kNoAnswer, take);
}

}  // namespace zvtaskq
