// What a queue line that deletes accounts is held to, and how the one who asked is told.
#include <algorithm>

#include "account/lifecycle/account_lists.h"
#include "account/lifecycle/deletion.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/safe_point.h"
#include "notify/ticket.h"

namespace zvtaskq {

namespace {

/// Who asked.
struct Requester {
  const char* name;
  AccountType type = AccountType::unknown;
};

int readRequester(const Task& task, Requester& requester) {
  ConfigFile account(nullptr);
  if (!readAccount(requester.name, account)) {
    errorLog("Unable to read account %s : %s", requester.name, account.result.orEmpty());
    return 0;
  }
  requester.type = accountTypeOf(account);
  if (requester.type == AccountType::admin || requester.type == AccountType::reseller) return 1;
  errorLog("Account %s tried to delete some accounts, but does not have the required account type",
           task.get("requestedby"));
  return 0;
}

/// An administrator may ask for the domains' DNS zones to stay while they are shared with a cluster.
bool leavesDns(const Task& task, const Requester& requester) {
  if (!task.is("leave_dns", "yes")) return false;
  if (requester.type == AccountType::admin && sys_conf->cluster) return true;
  errorLogAndDebug(
      10, "Invalid option: 'leave_dns=yes' -> Either the clustering is not on, or this is not an Admin account (%s)",
      requester.name);
  return false;
}

/// Users before those who have them.
std::vector<std::string> inOrder(const ListFile& selected) {
  std::vector<std::pair<int, std::string>> ranked;
  for (int i = 0; i < selected.size(); ++i) {
    ConfigFile record(nullptr);
    const char* name = selected.getElementAt(i);
    const int known = readAccount(name, record);
    ranked.emplace_back(known ? static_cast<int>(accountTypeOf(record)) : 0, name);
  }
  std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> names;
  for (auto& [rank, name] : ranked) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
  }
  return names;
}

int deleteFor(const Requester& requester, const char* account, bool leaveDns, Text& result) {
  if (requester.type == AccountType::reseller) {
    ConfigFile record(nullptr);
    const AccountType type = readAccount(account, record) ? accountTypeOf(record) : AccountType::unknown;
    const bool isManager = type == AccountType::reseller || type == AccountType::admin;
    if (isManager || !isUserOf(requester.name, account)) {
      return fail(result, account, " is no user of ", requester.name);
    }
  }
  return deleteAccount(account, leaveDns, result);
}

}  // namespace

int deleteAccounts(const Task& task) {
  Requester requester{task.get("requestedby")};
  if (!readRequester(task, requester)) return 0;
  ListFile users(nullptr);
  selectedOf(task, users);
  if (users.size() == 0) {
    errorLog("Account %s tried to delete some accounts, but did not specify any selected users", requester.name);
    return 0;
  }
  const bool leaveDns = leavesDns(task, requester);
  int done = 1;
  Text told;
  for (const std::string& account : inOrder(users)) {
    atSafePoint();
    Text result;
    const int deleted = deleteFor(requester, account.c_str(), leaveDns, result);
    done &= deleted;
    if (deleted) addResult(told, "Account ", account, " deleted");
    if (!deleted) errorLog("Account %.100s: %s", account.c_str(), result.orEmpty());
    told.append(result.view());
  }
  ListFile recipients(nullptr);
  recipients.addElement(requester.name);
  Ticket ticket;
  static_cast<void>(ticket.messageUsers(done ? "Users deleted" : "Error while deleting Users", told, &recipients));
  queueTask("rewrite", "ipcount");
  queueTask("cache", "showallusers");
  return done;
}

}  // namespace zvtaskq
