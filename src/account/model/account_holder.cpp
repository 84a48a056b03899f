#include "account/model/account_holder.h"

#include <algorithm>

#include "account/model/account_record.h"
#include "account/model/system_accounts.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"

namespace zvtaskq {

void AccountHolder::findSystemAccount() {
  const SystemAccount* found = systemAccounts().find(name.c_str());
  hasSystemAccount = found != nullptr;
  ids = hasSystemAccount ? found->ids : Ids{kUnknownId, kUnknownId};
}

bool AccountHolder::isPerson() const {
  return hasSystemAccount && ids.user >= kFirstPerson && ids.user != nobodyIds().user && ids.user != getUID(kPanelUser);
}

bool AccountHolder::ownsFtp(std::string_view ftpName, std::string_view uid) const {
  if (ftpName == name || (isPerson() && uid == std::to_string(ids.user))) return true;
  const std::size_t at = ftpName.rfind(sys_conf->ftpsep);
  return at != std::string_view::npos && domains.contains(ftpName.substr(at + 1));
}

int findHolder(const char* account, AccountHolder& holder, Text& result) {
  holder.name = account;
  holder.findSystemAccount();
  std::vector<std::string> listed;
  if (!readDomains(account, listed, result)) return 0;
  ConfigFile owners(nullptr);
  // It is replaced as a whole, and the mail server may hold its lock as long as it likes.
  owners.useLock = false;
  if (!listed.empty() && !readDomainOwners(owners)) debug(10, "%s", owners.result.orEmpty());
  for (std::string& domain : listed) {
    if (!isOthersDomain(owners, account, domain.c_str())) {
      holder.domains.insert(std::move(domain));
    } else {
      errorLog("%s: %s belongs to %s, and is left alone", accountFile(account, "domains.list").c_str(), domain.c_str(),
               owners.getOrEmpty(domain.c_str()));
    }
  }
  return 1;
}

PasswordLine::PasswordLine(std::string_view line) {
  const std::size_t first = line.find(':');
  if (first == std::string_view::npos || first == 0) return;
  isOne = true;
  name = line.substr(0, first);
  const std::size_t second = std::min(line.find(':', first + 1), line.size());
  hash = line.substr(first + 1, second - first - 1);
  rest = line.substr(second);
  if (!rest.empty()) uid = rest.substr(1, std::min(rest.find(':', 1), rest.size()) - 1);
}

}  // namespace zvtaskq
