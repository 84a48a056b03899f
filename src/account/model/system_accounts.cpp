#include "account/model/system_accounts.h"

#include <pwd.h>

namespace zvtaskq {

const SystemAccount* SystemAccounts::find(const char* name) {
  readIfChanged();
  const auto found = name == nullptr ? accounts_.end() : accounts_.find(name);
  return found == accounts_.end() ? nullptr : &found->second;
}

Ids SystemAccounts::idsOf(const char* name) {
  const SystemAccount* account = find(name);
  return account == nullptr ? Ids{kUnknownId, kUnknownId} : account->ids;
}

bool SystemAccounts::hasUser(uid_t user) {
  readIfChanged();
  return users_.contains(user);
}

void SystemAccounts::readIfChanged() {
  if (!file_.hasChanged() && !accounts_.empty()) return;
  accounts_.clear();
  users_.clear();
  ::setpwent();
  while (const passwd* entry = ::getpwent()) {
    // The first of a name counts, as it does for who asks by name.
    accounts_.try_emplace(entry->pw_name, SystemAccount{{entry->pw_uid, entry->pw_gid}, entry->pw_dir});
    users_.insert(entry->pw_uid);
  }
  ::endpwent();
}

SystemAccounts& systemAccounts() {
  static SystemAccounts all;
  return all;
}

}  // namespace zvtaskq
