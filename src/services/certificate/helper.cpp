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
constexpr const char* kHelper = "/libexec/zvcert";

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
  const ChildResult child = runChild(plan);
  std::string_view output = child.output;
  std::string_view line;
  std::size_t answered = 0;
  ConfigFile answer(nullptr);
  while (answered < plan.inputs.size() && nextLine(output, line)) {
    answer.empty();
    answer.fillFromPost(line);
    take(answered++, answer);
  }
  if (answered == plan.inputs.size()) return;
  errorLog("%s: no answer about %zu certificates; exit status %d", plan.path.c_str(), plan.inputs.size() - answered,
           child.status);
  answer.empty();
  answer.setParam("result", "failed");
  answer.setParam("error", kNoAnswer);
  while (answered < plan.inputs.size()) take(answered++, answer);
}

}  // namespace zvtaskq
