// An account's list of domains, and the mail server's table of who owns which.
#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "account/model/account_record.h"
#include "account/upkeep/each_account.h"
#include "account/upkeep/rows.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

int tell(const DataFile& file) {
  errorLog("%s: %s", file.getFilename(), file.result.orEmpty());
  return 0;
}

bool hasRecord(const char* account, const char* domain) {
  ConfigFile record(nullptr);
  record.useLock = false;
  return readDomain(account, domain, record) != 0;
}

/// What is wrong between the list of one account and the table.
class DomainsCheck {
 public:
  explicit DomainsCheck(const char* account) : account_(account), listPath_(accountFile(account, "domains.list")) {}

  int run() {
    std::vector<std::string> domains;
    ConfigFile owners(nullptr);
    Text result;
    if (!readDomains(account_, domains, result)) {
      errorLog("%s: %s", listPath_.c_str(), result.orEmpty());
      return 0;
    }
    if (!readDomainOwners(owners)) return tell(owners);
    for (const std::string& domain : domains) lookAtListed(domain.c_str(), owners);
    const std::set<std::string_view> listed(domains.begin(), domains.end());
    for (long long i = 0; i < owners.size(); ++i) {
      const char* domain = owners.getNameAt(i);
      if (owners.isValue(domain, account_) && !listed.contains(domain)) lookAtOwned(domain);
    }
    // First the table: who finds a domain there finds it in nobody else's list.
    return writeOwners() && writeList();
  }

 private:
  void lookAtListed(const char* domain, const ConfigFile& owners) {
    const char* owner = owners.getValue(domain);
    if (owner != nullptr && std::string_view(owner) == account_) return;
    if (isOthersDomain(owners, account_, domain)) {
      errorLog("%s: %s belongs to %s, and is taken out", listPath_.c_str(), domain, owner);
      out_.emplace_back(domain);
    } else if (!hasRecord(account_, domain)) {
      errorLog("%s: %s has no record", listPath_.c_str(), domain);
    } else {
      errorLog("%s: %s has no owner but %s, who is put there", domainOwnersFile().c_str(), domain, account_);
      owned_.push_back({domain, owner == nullptr ? "" : owner});
    }
  }

  void lookAtOwned(const char* domain) {
    const bool isWhole = isValidDomain(domain) && hasRecord(account_, domain);
    errorLog(isWhole ? "%s: %s was missing, and is put in" : "%s: %s is missing, and has no record", listPath_.c_str(),
             domain);
    if (isWhole) in_.emplace_back(domain);
  }

  int writeOwners() const {
    if (owned_.empty()) return 1;
    MailRecord table(domainOwnersFile().c_str());
    const RecordLock lock(table);
    if (!table.read()) return tell(table);
    for (const Owned& one : owned_) {
      const std::string_view owner = table.getOrEmpty(one.domain.c_str());
      // Whom the table names since then, it names with reason.
      if (owner.substr(std::min(owner.find_first_not_of(' '), owner.size())) != one.before) continue;
      table.setParam(one.domain.c_str(), joined(" ", account_).c_str());
    }
    return table.writeFile() ? 1 : tell(table);
  }

  int writeList() const {
    if (in_.empty() && out_.empty()) return 1;
    PanelList list(listPath_);
    const RecordLock lock(list);
    if (!list.readFile()) return tell(list);
    for (const std::string& domain : out_) list.deleteElement(domain.c_str());
    for (const std::string& domain : in_) list.addElement(domain.c_str());
    return list.writeFile() ? 1 : tell(list);
  }

  struct Owned {
    std::string domain;
    /// Whom the table named before; empty for nobody.
    std::string before;
  };

  const char* account_;
  std::string listPath_;
  std::vector<std::string> in_;
  std::vector<std::string> out_;
  std::vector<Owned> owned_;
};

}  // namespace

int confirmDomainsList(const Task& task) {
  debug(10, "Confirming domains.list for User %s", task.get("user"));
  if (isDemo()) return 1;
  return forEachAccount(task.get("user"), "the check of the domains",
                        [](const char* account) { return DomainsCheck(account).run(); });
}

}  // namespace zvtaskq
