#include "services/web/certificates.h"

#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

constexpr int kTimeLimit = 300;
constexpr const char* kHelper = "/libexec/zvcert";

void makeFile(const NewCertificate& one) {
  SafeFile file(one.path.c_str());
  const bool isOpen = file.open() != 0;
  if (isOpen) file.write(one.pem);
  if (isOpen && file.finish() && file.putInPlace()) return;
  errorLog("%s %s: %s: %s", one.account.c_str(), one.domain.c_str(), one.path.c_str(), std::strerror(errno));
}

void take(const NewCertificate& one, const ConfigFile& answer) {
  if (answer.isValue("result", "done")) return makeFile(one);
  const char* why = answer.getValue("error");
  errorLog("%s %s: certificate is refused: %s", one.account.c_str(), one.domain.c_str(),
           printable(why == nullptr ? "no answer" : why).c_str());
}

}  // namespace

void judgeCertificates(const std::vector<NewCertificate>& all) {
  if (all.empty()) return;
  const AsUser panel(kPanelUser);
  ChildPlan plan = ChildPlan::program(joined(sys_conf->serverpath, kHelper));
  plan.timeLimit = kTimeLimit;
  for (const NewCertificate& one : all) {
    std::string request;
    addPair(request, "pem", one.pem);
    plan.inputs.push_back(request += '\n');
  }
  const ChildResult child = runChild(plan);
  std::string_view output = child.output;
  std::string_view line;
  std::size_t answered = 0;
  while (answered < all.size() && nextLine(output, line)) {
    ConfigFile answer(nullptr);
    answer.fillFromPost(line);
    take(all[answered++], answer);
  }
  if (answered == all.size()) return;
  errorLog("%s: no answer about %zu certificates, which are not used; exit status %d", plan.path.c_str(),
           all.size() - answered, child.status);
}

}  // namespace zvtaskq
