#include "account/lifecycle/actions.h"

#include "account/lifecycle/deletion.h"
#include "account/lifecycle/disk_quota.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

int confirmDomainsList(const Task& task) {
  debug(10, "Confirming domains.list for User %s", task.get("user"));
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
    {"rewrite", "value", "quota", rewriteQuota, "sets the disk quota of one user or all"},
    {"rewrite", "value", "helo_data", rewriteHeloData, "rewrites the mail server's HELO table"},
};

}  // namespace

ActionRows accountActions() {
  return kRows;
}

}  // namespace zvtaskq
