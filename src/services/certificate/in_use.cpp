#include "services/certificate/in_use.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "account/model/account_record.h"
#include "account/model/name_owner.h"
#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "services/certificate/helper.h"
#include "services/certificate/wanted.h"
#include "services/rewrite/left_out.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongest = 256UL << 10;
constexpr std::size_t kMostWaiting = 4UL << 20;

struct ServerCertificate {
  const char* key;
  const Text Config::*path;
};
/// A chain ends as well: of each file the first one counts.
constexpr ServerCertificate kServer[] = {{"apachecert", &Config::apachecert},
                                         {"apacheca", &Config::apacheca},
                                         {"nginx_cert", &Config::nginx_cert},
                                         {"nginx_ca", &Config::nginx_ca},
                                         {"carootcert", &Config::carootcert}};

class Gathering {
 public:
  Gathering(std::vector<CertificateInUse>& all, bool& isWhole) : all_(all), isWhole_(isWhole) {}

  int run(const char* only, Text& result) {
    if (!readDomainOwners(owners_)) return fail(result, owners_.getFilename(), ": ", owners_.result);
    if (only != nullptr) {
      const AsUser panel(kPanelUser);
      const char* owner = owners_.getValue(only);
      if (owner == nullptr) return fail(result, only, " is nobody's domain");
      take(owner, only);
    } else {
      takeServer();
      if (!takeAccounts(result)) return 0;
    }
    readDatesOfAll();
    return 1;
  }

 private:
  void takeServer() {
    for (const ServerCertificate& one : kServer) {
      const Text& path = (*sys_conf).*one.path;
      if (path.isEmpty()) continue;
      const AsRoot root;
      std::string pem;
      const Descriptor file = openRegularFile(path);
      if (!file && errno == ENOENT) continue;
      CertificateInUse found;
      found.name = one.key;
      found.isThere = true;
      if (!file || !sys::readAll(file.get(), pem, kLongest)) found.error = std::strerror(errno);
      add(std::move(found), pem);
    }
  }

  int takeAccounts(Text& result) {
    ListFile names(nullptr);
    if (!listAccounts(names)) return fail(result, "the accounts cannot be listed");
    const AsUser panel(kPanelUser);
    for (int i = 0; i < names.size(); ++i) {
      const char* account = names.getElementAt(i);
      std::vector<std::string> domains;
      Text why;
      if (!readDomains(account, domains, why)) {
        errorLog("%s: its domains cannot be read: %s", account, why.orEmpty());
        isWhole_ = false;
      }
      for (const std::string& domain : domains) take(account, domain);
      atSafePoint();
    }
    return 1;
  }

  void take(const std::string& account, const std::string& domain) {
    if (!mayHaveName(owners_, account.c_str(), domain)) return;
    CertificateInUse found;
    found.account = account;
    found.name = domain;
    if (!readWanted(account.c_str(), domain, owners_, found.wanted)) isWhole_ = false;
    std::string pem;
    const Descriptor file = openPanelFile(domainFile(account.c_str(), domain.c_str(), "cert").c_str());
    found.isThere = file || errno != ENOENT;
    if (found.isThere && (!file || !sys::readAll(file.get(), pem, kLongest))) found.error = std::strerror(errno);
    if (!found.isThere && found.wanted.empty()) return;
    readIssued(found, pem);
    add(std::move(found), pem);
  }

  static void readIssued(CertificateInUse& found, const std::string& pem) {
    PanelRecord issued(domainFile(found.account.c_str(), found.name.c_str(), kIssuedEnding));
    if (found.wanted.empty() || !issued.exists()) {
      // One that the panel did not issue is replaced by who asks for one.
      found.isOurs = true;
      return;
    }
    if (!issued.readFile()) found.error = trimmed(issued.result.view());
    found.isOurs = !found.isThere || issued.isValue("certificate", fingerprintOf(pem).c_str());
    found.issuedNames = issued.getOrEmpty("names");
  }

  void add(CertificateInUse found, const std::string& pem) {
    if (found.isThere && found.error.empty()) {
      places_.push_back(all_.size());
      requests_.push_back(certificateRequest("dates", pem));
    }
    all_.push_back(std::move(found));
    waiting_ += pem.size();
    if (requests_.size() >= kManyCertificates || waiting_ >= kMostWaiting) readDatesOfAll();
  }

  void readDatesOfAll() {
    askCertificateHelper(std::exchange(requests_, {}), [&](std::size_t which, const ConfigFile& answer) {
      CertificateInUse& one = all_[places_[which]];
      answer.getValue("from", &one.from);
      answer.getValue("until", &one.until);
      if (!answer.isValue("result", "done")) one.error = printable(answer.getOrEmpty("error"));
      one.isUnknown = answer.isValue("error", kNoAnswer);
    });
    places_.clear();
    waiting_ = 0;
  }

  std::vector<CertificateInUse>& all_;
  bool& isWhole_;
  ConfigFile owners_{nullptr};
  std::vector<std::string> requests_;
  std::vector<std::size_t> places_;
  /// Bytes of what is to be asked about.
  std::size_t waiting_ = 0;
};

}  // namespace

std::string CertificateInUse::label() const {
  return account.empty() ? joined("the server's ", name) : joined(account, " ", name);
}

int readCertificatesInUse(const char* only, std::vector<CertificateInUse>& all, bool& isWhole, Text& result) {
  return Gathering(all, isWhole).run(only, result);
}

}  // namespace zvtaskq
