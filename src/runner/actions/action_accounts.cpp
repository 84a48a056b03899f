// Rows of the account model: deletions, addresses, and what administrators are to be told.
#include <string>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "notify/operations.h"
#include "runner/actions/account_operations.h"
#include "runner/actions/action_rows.h"
#include "runner/actions/mail_operations.h"
#include "runner/actions/tally_operations.h"

namespace zvtaskq {

namespace {

void rebuildUsersCache() {
  ListFile everybody(nullptr);
  tallyOperations().cacheAllUsers(&everybody, false);
}

/// Whether the domains' DNS zones stay: an administrator may ask for it while the zones are shared with a cluster.
bool leavesDns(const Task& task, AccountType type) {
  if (!task.is("leave_dns", "yes")) return false;
  if (type == AccountType::admin && sys_conf->cluster) return true;
  errorLogAndDebug(
      10, "Invalid option: 'leave_dns=yes' -> Either the clustering is not on, or this is not an Admin account (%s)",
      task.get("requestedby"));
  return false;
}

void deleteAccounts(const Task& task) {
  const char* requester = task.get("requestedby");
  ConfigFile account(nullptr);
  if (!readAccount(requester, account)) {
    errorLog("Unable to read account %s : %s", requester, account.result.orEmpty());
    return;
  }
  const AccountType type = accountTypeOf(account);
  if (type != AccountType::admin && type != AccountType::reseller) {
    errorLog("Account %s tried to delete some accounts, but does not have the required account type", requester);
    return;
  }
  ListFile users(nullptr);
  selectedOf(task, users);
  if (users.size() == 0) {
    errorLog("Account %s tried to delete some accounts, but did not specify any selected users", requester);
    return;
  }
  const bool leaveDns = leavesDns(task, type);
  const auto& deleteUsers = accountOperations().deleteUsers;
  if (deleteUsers.missing()) return;
  Text outcome;
  const int deleted = deleteUsers(&users, leaveDns, &outcome);
  ListFile recipients(nullptr);
  recipients.addElement(requester);
  notifyOperations().messageUsers(deleted ? "Users deleted" : "Error while deleting Users", outcome.orEmpty(),
                                  &recipients);
  rebuildUsersCache();
}

void deleteMailboxFiles(const Task&) {
  mailOperations().deleteOldMailboxFiles();
}

constexpr TaskRow kDeletions[] = {{"mbox", deleteMailboxFiles}, {"account", deleteAccounts}};

void notifyOfBlacklisted(const Task& task) {
  const char* ip = task.get("ip");
  const std::string subject = joined("*** ", ip, " has been added to the ip_blacklist file ***");
  const std::string message =
      joined("The ip '", ip, "' has been added to the ", sys_conf->ip_blacklist,
             " file for having too many repeated failed login attempts into the '", task.get("username"), "' account.");
  notifyOperations().notifyAdmins("", subject.c_str(), message.c_str(), 1);
}

void notifyWithText(const Task& task) {
  const char* subject = task.given("subject");
  const char* message = task.given("message");
  if (subject == nullptr) {
    errorLogAndDebug(10, "Nofity Admin: subject is missing or empty%s", "");
  } else if (message == nullptr) {
    errorLogAndDebug(10, "Nofity Admin: message is missing or empty%s", "");
  } else {
    notifyOperations().notifyAdmins("", subject, message, 1);
  }
}

constexpr TaskRow kNotices[] = {{"ip_blacklist", notifyOfBlacklisted}, {"admin", notifyWithText}};

}  // namespace

void deleteAction(const Task& task) {
  if (runRow(kDeletions, task.value(), task)) return;
  errorLog("executeCommand: can't figure out what to delete for '%s'", task.line);
}

void notifyAction(const Task& task) {
  if (runRow(kNotices, task.value(), task)) return;
  errorLog("executeCommand: can't figure out whom to notify for '%s'", task.line);
}

void ipSwapAction(const Task& task) {
  if (!task.is("value", "linked_ips")) {
    debug(10, "Did you forget &value=%s ?", "linked_ips");
    return;
  }
  debug(10, "Swapping Linked-IPs");
  accountOperations().swapLinkedIps();
}

}  // namespace zvtaskq
