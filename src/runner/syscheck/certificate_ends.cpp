#include "runner/syscheck/certificate_ends.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/sys/privileges.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kManyAtOnce = 500;
constexpr std::size_t kMostBytes = 256UL * 1024;
constexpr int kTimeLimit = 60;
constexpr long long kDay = 86400;
constexpr long long kSoon = 14 * kDay;
constexpr const char* kHelper = "/libexec/zvcert";
constexpr const char* kRenew = "renew it, or put another one in its place";

}  // namespace

void CertificateEnds::add(const std::string& whose, const std::string& path) {
  const Descriptor file = openRegularFile(path.c_str());
  if (!file && errno == ENOENT) return;
  One one{whose, path, ""};
  if (!file || !sys::readAll(file.get(), one.pem, kMostBytes)) {
    issues_.add(Concern::certificates, joined(whose, ": ", path, ": ", std::strerror(errno)), kRenew);
    return;
  }
  waiting_.push_back(std::move(one));
  if (waiting_.size() >= kManyAtOnce) ask();
}

void CertificateEnds::ask() {
  std::vector<One> all;
  all.swap(waiting_);
  if (all.empty()) return;
  ChildPlan plan = ChildPlan::program(joined(sys_conf->serverpath, kHelper));
  plan.identity = idsOf(kPanelUser);
  plan.timeLimit = kTimeLimit;
  for (const One& one : all) {
    std::string request;
    addPair(request, "dates", one.pem);
    plan.inputs.push_back(request += '\n');
  }
  const ChildResult child = runChild(plan);
  std::string_view output = child.output;
  std::string_view line;
  for (const One& one : all) {
    if (!nextLine(output, line)) {
      issues_.add(Concern::certificates, joined(plan.path, " does not tell when certificates end"),
                  "install the panel's package once more");
      return;
    }
    ConfigFile answer(nullptr);
    answer.fillFromPost(line);
    long long until = 0;
    if (answer.isValue("result", "done") && answer.getValue("until", &until)) {
      tell(one, until);
    } else {
      issues_.add(Concern::certificates, joined(one.whose, ": ", one.path, " is no certificate that can be read"),
                  kRenew);
    }
  }
}

void CertificateEnds::tell(const One& one, long long until) {
  const long long left = until - std::time(nullptr);
  if (left > kSoon) return;
  const std::string when =
      left <= 0 ? "has ended" : joined("ends within ", std::to_string((left + kDay - 1) / kDay), " days");
  issues_.add(Concern::certificates, joined(one.whose, ": ", one.path, " ", when), kRenew);
}

}  // namespace zvtaskq
