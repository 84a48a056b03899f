#include "account/lifecycle/actions.h"

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

int confirmDomainsList(const Task& task) {
  debug(10, "Confirming domains.list for User %s", task.get("user"));
  return 1;
}

/// An administrator may ask for the domains' DNS zones to stay while they are shared with a cluster.
void checkLeaveDns(const Task& task, AccountType type) {
  if (!task.is("leave_dns", "yes") || (type == AccountType::admin && sys_conf->cluster)) return;
  errorLogAndDebug(
      10, "Invalid option: 'leave_dns=yes' -> Either the clustering is not on, or this is not an Admin account (%s)",
      task.get("requestedby"));
}

int deleteAccounts(const Task& task) {
  const char* requester = task.get("requestedby");
  ConfigFile account(nullptr);
  if (!readAccount(requester, account)) {
    errorLog("Unable to read account %s : %s", requester, account.result.orEmpty());
    return 0;
  }
  const AccountType type = accountTypeOf(account);
  if (type != AccountType::admin && type != AccountType::reseller) {
    errorLog("Account %s tried to delete some accounts, but does not have the required account type", requester);
    return 0;
  }
  ListFile users(nullptr);
  selectedOf(task, users);
  if (users.size() == 0) {
    errorLog("Account %s tried to delete some accounts, but did not specify any selected users", requester);
    return 0;
  }
  checkLeaveDns(task, type);
  return 1;
}

int swapLinkedIps(const Task&) {
  debug(10, "Swapping Linked-IPs");
  return 1;
}

int rewriteAccessGroup(const Task&) {
  if (!sys_conf->secure_access_group.isEmpty()) return 1;
  errorLogAndDebug(10, "Unable to rewrite secure_access_group.  It's not set in the zorvane.conf");
  return 0;
}

int rewriteHeloData(const Task&) {
  PanelList addresses(adminFile("ip.list"));
  if (addresses.readFile()) return 1;
  errorLog("ip.list: readFile error: %s", addresses.result.orEmpty());
  return 0;
}

constexpr ActionRow kRows[] = {
    {"confirm", "type", "domains.list", confirmDomainsList, "checks a user's domains against the table of owners"},
    {"delete", "value", "account", deleteAccounts, "deletes accounts"},
    {"ipswap", "value", "linked_ips", swapLinkedIps, "swaps linked addresses"},
    {"rewrite", "value", "secure_access_group", rewriteAccessGroup, "sets the access group of every user's files"},
    {"rewrite", "value", "helo_data", rewriteHeloData, "rewrites the mail server's HELO table"},
};

}  // namespace

ActionRows accountActions() {
  return kRows;
}

}  // namespace zvtaskq
