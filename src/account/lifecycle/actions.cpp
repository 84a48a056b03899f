#include "account/lifecycle/actions.h"

#include "account/lifecycle/rows.h"
#include "account/model/account_record.h"
#include "account/model/address_count.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

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

int countAddressUsers(const Task&) {
  return recountIps();
}

constexpr ActionRow kRows[] = {
    {"confirm", "type", "domains.list", confirmDomainsList, "checks a user's domains against the table of owners"},
    {"delete", "value", "account", deleteAccounts, "deletes accounts"},
    {"addoptions", nullptr, nullptr, addOptions, "gives every account the features its record says nothing of"},
    {"ipswap", "value", "linked_ips", swapLinkedIps, "swaps linked addresses"},
    {"rewrite", "value", "secure_access_group", rewriteAccessGroup, "sets the access group of every user's files"},
    {"rewrite", "value", "links", rewriteLinks, "makes the links to the web pages in the homes"},
    {"rewrite", "value", "ipcount", countAddressUsers, "counts the accounts of each address"},
    {"rewrite", "value", "domainips", rewriteDomainIps, "rewrites the mail server's table of domains to addresses"},
    {"rewrite", "value", "helo_data", rewriteHeloData, "rewrites the mail server's HELO table"},
};

}  // namespace

ActionRows accountActions() {
  return kRows;
}

}  // namespace zvtaskq
