#include "account/upkeep/each_account.h"

#include <cerrno>
#include <cstring>

#include "account/model/account_lock.h"
#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {

int refuse(const char* what, const char* account, const char* why) {
  errorLog("Unable to do %s for %.100s: %s", what, account, why);
  return 0;
}

bool hasFolder(const char* account) {
  const AsUser panel(kPanelUser);
  return pathExists(accountFile(account, nullptr).c_str(), PathKind::folder) != 0;
}

int doStep(const char* account, const char* what, const std::function<int(const char*)>& step) {
  atSafePoint();
  set_program_location("%s: %s", what, account);
  const AccountLock lock(account, kAccountLockWait);
  if (lock.held()) return step(account);
  return refuse(what, account, errno == EWOULDBLOCK ? "another run works on it" : std::strerror(errno));
}

}  // namespace

int forEachAccount(const char* only, const char* what, const std::function<int(const char* account)>& step) {
  if (only != nullptr) {
    if (!isAccountName(only) || !hasFolder(only)) return refuse(what, only, "there is no such account");
    return doStep(only, what, step);
  }
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) return refuse(what, "all accounts", sys_conf->userdata.orEmpty());
  int outcome = 1;
  for (int i = 0; i < accounts.size(); ++i) outcome &= doStep(accounts.getElementAt(i), what, step);
  return outcome;
}

}  // namespace zvtaskq
