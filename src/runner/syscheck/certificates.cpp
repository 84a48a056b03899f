#include <ctime>
#include <string>
#include <vector>

#include "runner/syscheck/checks.h"
#include "runner/syscheck/issues.h"
#include "services/certificate/in_use.h"

namespace zvtaskq {

namespace {

constexpr long long kDay = 86400;
constexpr long long kSoon = 14 * kDay;
constexpr const char* kRenew = "renew it, or put another one in its place";

void tell(const CertificateInUse& one, long long left, Issues& issues) {
  if (left > kSoon) return;
  const std::string when =
      left <= 0 ? "has ended" : joined("ends within ", std::to_string((left + kDay - 1) / kDay), " days");
  issues.add(Concern::certificates, joined(one.label(), ": the certificate ", when), kRenew, one.account);
}

}  // namespace

void checkCertificateEnds(Issues& issues) {
  std::vector<CertificateInUse> all;
  bool isWhole = true;
  Text why;
  if (!readCertificatesInUse(nullptr, all, isWhole, why)) {
    issues.add(Concern::certificates, joined("the certificates cannot be looked at (", trimmed(why.view()), ")"),
               "look into what is said of the accounts and of the owners of domains");
    return;
  }
  const long long now = std::time(nullptr);
  for (const CertificateInUse& one : all) {
    if (!one.isThere) continue;
    if (one.error.empty()) {
      tell(one, one.until - now, issues);
    } else {
      issues.add(Concern::certificates, joined(one.label(), ": the certificate cannot be read: ", one.error), kRenew,
                 one.account);
    }
  }
}

}  // namespace zvtaskq
