#include "account/lifecycle/deletion.h"

#include <grp.h>

#include <cerrno>
#include <cstring>

#include "account/lifecycle/account_data.h"
#include "account/lifecycle/account_home.h"
#include "account/lifecycle/account_lists.h"
#include "account/lifecycle/account_mail.h"
#include "account/lifecycle/creation.h"
#include "account/lifecycle/disk_quota.h"
#include "account/model/account_hooks.h"
#include "account/model/account_work.h"
#include "account/model/ftp_sessions.h"
#include "account/model/system_accounts.h"
#include "account/suspension/account_databases.h"
#include "account/suspension/account_jobs.h"
#include "account/suspension/account_marks.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/process/system_tool.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "services/web/php_limits.h"
#include "services/web/pool_closing.h"

namespace zvtaskq {

namespace {

bool hasFolder(const char* account) {
  const AsUser panel(kPanelUser);
  struct stat what {};
  return sys::lstat(accountFile(account, nullptr).c_str(), what) == 0;
}

bool hasUsers(const char* account) {
  PanelList users(accountFile(account, "users.list"));
  return users.readFile() && users.size() > 0;
}

/// The domains that the mail server's table gives him, where his own list of them cannot be read.
int findDomainsByOwner(AccountHolder& holder, Text& result) {
  ConfigFile owners(nullptr);
  if (!readDomainOwners(owners)) return fail(result, owners.result);
  for (long long i = 0; i < owners.size(); ++i) {
    const char* domain = owners.getNameAt(i);
    if (owners.getValueAt(i) == holder.name && isValidDomain(domain)) holder.domains.emplace(domain);
  }
  return 1;
}

/// Why the deletion may not begin is a line of `result`.
int mayDelete(const AccountWork& work, Text& result) {
  const char* account = work.account;
  if (!hasFolder(account) && !isListedAccount(account)) return fail(result, "There is no account ", account);
  const AccountType type = accountTypeOf(work.record);
  if (type == AccountType::admin && isLastAdministrator(account)) {
    return fail(result, account, " is the last administrator");
  }
  if (type == AccountType::reseller && hasUsers(account)) return fail(result, "Reseller ", account, " still has users");
  if (!sys_conf->backup_before_delete.isEmpty()) {
    return fail(result, "Account ", account,
                " cannot be backed up before (backup_before_delete) in this build: nothing is deleted");
  }
  return AccountHooks{"destroy", account, &work.record}.allow(result);
}

/// Nobody comes in, and nothing of his goes on.
int stopForGood(const AccountHolder& holder, Text& result) {
  SuspensionNotes notes("");
  notes.expires = "";
  int done = markSystem(holder, notes, result);
  done &= removeCrontab(holder, result);
  // PHP-FPM starts another for each that is ended, as long as it knows of his pool.
  done &= closePhpPools(holder.name.c_str(), result);
  if (!endProcesses(holder)) done = fail(result, "Processes of ", holder.name, " are still running");
  done &= removeAtJobs(holder, result);
  return done & removeCrontab(holder, result);
}

int removeServices(const AccountHolder& holder, Text& result) {
  int done = dropDatabasesOf(holder.name.c_str(), result);
  done &= dropFtp(holder, result);
  // Who came in meanwhile would keep the system account there.
  if (holder.isPerson()) endFtpSessions({holder.ids.user});
  for (const std::string& domain : holder.domains) done &= removeMailDomain(domain.c_str(), result);
  done &= removeMailOf(holder, result);
  return done & removeDomainOwner(holder.name.c_str(), result);
}

/// The group that came with the account goes with it, when the system's program has left it.
int removeGroup(const AccountHolder& holder, Text& result) {
  const group* left = ::getgrnam(holder.name.c_str());
  if (left == nullptr || left->gr_gid != holder.ids.group || left->gr_mem[0] != nullptr) return 1;
  return useTool(sys_conf->groupdel, {holder.name}, result);
}

/// A home that could not be taken away keeps the system account: its user id would be somebody else's next.
int removeSystemAccount(const AccountHolder& holder, Text& result) {
  if (!holder.isPerson()) return 1;
  if (!removeHome(holder, result)) {
    return fail(result, "The system account ", holder.name, " stays with its home");
  }
  int done = setQuota(holder.name.c_str(), {}, result);
  done &= deleteSystemUser(holder.name, result);
  return done & removeGroup(holder, result);
}

int queueRewrites(const AccountHolder& holder, bool leaveDns, Text& result) {
  int done = queueWebRewrite(holder.name.c_str(), result);
  for (const std::string& domain : holder.domains) {
    if (!leaveDns && !queueZoneRewrite(domain.c_str(), result)) done = 0;
  }
  return done;
}

/// The steps of an account that is more than a name in a list.
int removeAll(const AccountWork& work, bool leaveDns, Text& result) {
  const char* address = work.record.getOrEmpty("ip");
  int done = stopForGood(work.holder, result);
  done &= removeServices(work.holder, result);
  done &= removeSystemAccount(work.holder, result);
  done &= queueRewrites(work.holder, leaveDns, result);
  return done & releaseAddresses(work.account, address, result);
}

}  // namespace

int deleteAccount(const char* account, bool leaveDns, Text& result) {
  AccountWork work(account);
  if (!work.begin(result)) return 0;
  const bool hasData = hasFolder(work.account);
  int done = 1;
  if (hasData) {
    // One whose record or list of domains is damaged is deleted as far as it is known.
    if (!readAccount(account, work.record)) debug(10, "%s: %s", account, work.record.result.orEmpty());
    if (!findHolder(account, work.holder, result)) done = findDomainsByOwner(work.holder, result);
  }
  if (!mayDelete(work, result)) return 0;
  if (hasData) done &= removeAll(work, leaveDns, result);
  if (!done) return fail(result, "The data of account ", account, " stays, for another deletion to find the rest");
  // The lists last: whoever may delete the account may delete it again.
  if (hasData && !removeData(account, result)) return 0;
  if (hasData) done &= allocate(work.record, false, result);
  done &= unlistAccount(account, result) & forgetCreation(account, result) & forgetPhpLimits(account, result);
  const AccountHooks hooks{"destroy", account, &work.record};
  hooks.tell();
  systemLog("Account %s deleted", account);
  return done;
}

}  // namespace zvtaskq
