#include "runner/syscheck/certificate_ends.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "core/files/safe_file.h"
#include "services/certificate/helper.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kMostBytes = 256UL * 1024;
constexpr long long kDay = 86400;
constexpr long long kSoon = 14 * kDay;
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
  if (waiting_.size() >= kManyCertificates) ask();
}

void CertificateEnds::ask() {
  std::vector<One> all;
  all.swap(waiting_);
  if (all.empty()) return;
  std::vector<std::string> requests;
  for (const One& one : all) requests.push_back(certificateRequest("dates", one.pem));
  askCertificateHelper(std::move(requests), [&](std::size_t which, const ConfigFile& answer) {
    const One& one = all[which];
    long long until = 0;
    if (answer.isValue("result", "done") && answer.getValue("until", &until)) return tell(one, until);
    const char* why = answer.getOrEmpty("error");
    issues_.add(Concern::certificates, joined(one.whose, ": ", one.path, " cannot be read: ", why), kRenew);
  });
}

void CertificateEnds::tell(const One& one, long long until) {
  const long long left = until - std::time(nullptr);
  if (left > kSoon) return;
  const std::string when =
      left <= 0 ? "has ended" : joined("ends within ", std::to_string((left + kDay - 1) / kDay), " days");
  issues_.add(Concern::certificates, joined(one.whose, ": ", one.path, " ", when), kRenew);
}

}  // namespace zvtaskq
