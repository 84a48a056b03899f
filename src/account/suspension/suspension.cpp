#include "account/suspension/suspension.h"

#include "account/model/account_hooks.h"
#include "account/model/account_work.h"
#include "account/suspension/account_databases.h"
#include "account/suspension/account_jobs.h"
#include "account/suspension/account_marks.h"
#include "account/suspension/domain_suspension.h"
#include "account/suspension/reasons.h"
#include "mail/server_tables.h"

namespace zvtaskq {

namespace {

/// Writes down what is stopped already, before anything is. A suspension that was cut short goes on by what it wrote;
/// of one that left nothing, all that is marked is taken for its work.
int noteBefore(AccountWork& work, Text& result) {
  if (work.notes.exists && !work.notes.isOver) return 1;
  const bool isOthersWork = work.isSuspended() && !work.notes.exists;
  work.notes = SuspensionNotes(work.notes.file);
  if (!noteAccountMarks(work.holder, work.notes, result)) return 0;
  for (const std::string& domain : work.holder.domains) {
    if (!noteDomain(work.account, domain.c_str(), work.notes, result)) return 0;
  }
  std::string lines;
  if (!readCrontab(work.holder, work.notes.hadCrontab, lines, result)) return 0;
  if (isOthersWork) work.notes.blocked.clear();
  return work.notes.write(result);
}

int markAllMailboxes(const AccountWork& work, Text& result) {
  for (const std::string& domain : work.holder.domains) {
    if (!markMailboxes(domain.c_str(), result)) return 0;
  }
  return 1;
}

/// Stops everything. Who runs when the log-ins are closed may still put a cron job in place: that is taken away when he
/// is gone.
int stopAll(AccountWork& work, Text& result) {
  if (!markSystem(work.holder, work.notes, result) || !markAllMailboxes(work, result) ||
      !sayMailSuspended(work.account, result) || !markFtp(work.holder, result) || !holdCrontab(work.holder, result) ||
      !lockServices(work.account, work.notes, result)) {
    return 0;
  }
  // Who cannot be ended keeps nothing else from being stopped.
  static_cast<void>(endProcesses(work.holder));
  return holdCrontab(work.holder, result) && queueWebRewrite(work.account, result);
}

/// Gives everything back that is not noted; what fails does not keep the rest.
int giveBackAll(AccountWork& work, Text& result) {
  int done = freeSystem(work.holder, work.notes, result);
  for (const std::string& domain : work.holder.domains) {
    if (isDomainSuspended(work.account, domain.c_str())) continue;
    done &= freeMailboxes(domain.c_str(), work.notes, result);
  }
  done &= sayMailActive(work.account, result);
  done &= freeFtp(work.holder, work.notes, result);
  done &= unlockServices(work.account, work.notes, result);
  if (work.notes.hadCrontab) done &= releaseCrontab(work.holder, result);
  return done;
}

int sayStopped(const AccountWork& work, const char* reason, SuspendedBy by, Text& result) {
  const auto change = [&](ConfigFile& record) {
    const std::string reasons =
        wordsOfBoth(text_detail::part(record.getValue("suspended_reason")), text_detail::part(reason));
    record.setParam("suspended", "yes");
    record.setParam("suspended_reason", reasons.c_str());
    if (by == SuspendedBy::person) record.setParam("account", "OFF");
  };
  return changeRecord(work.record.getFilename(), change, result);
}

int sayGivenBack(const AccountWork& work, SuspendedBy by, Text& result) {
  const auto change = [&](ConfigFile& record) {
    record.setParam("suspended", "no");
    record.deleteParam("suspended_reason");
    if (by == SuspendedBy::person) record.setParam("account", "ON");
  };
  return changeRecord(work.record.getFilename(), change, result);
}

int activate(AccountWork& work, SuspendedBy by, Text& result) {
  if (!work.isSuspended() && !work.notes.exists) {
    return by == SuspendedBy::tally || !work.record.isValue("account", "OFF") || sayGivenBack(work, by, result);
  }
  const AccountHooks hooks{"activate", work.account, &work.record};
  if (!hooks.allow(result)) return 0;
  if (!work.notes.isOver && !giveBackAll(work, result)) return 0;
  work.notes.isOver = true;
  if (!work.notes.write(result) || !sayGivenBack(work, by, result) || !work.notes.remove(result)) return 0;
  const int queued = queueWebRewrite(work.account, result);
  hooks.tell();
  return queued;
}

}  // namespace

int suspendAccount(const char* account, const char* reason, SuspendedBy by, Text& result) {
  AccountWork work(account);
  if (!work.openWhole(result)) return 0;
  const bool isNew = !work.isSuspended() || work.notes.isOver;
  const AccountHooks hooks{"suspend", account, &work.record, "reason", reason};
  if ((isNew && !hooks.allow(result)) || !noteBefore(work, result)) return 0;
  if (!stopAll(work, result) || !sayStopped(work, reason, by, result)) {
    if (isNew && giveBackAll(work, result)) static_cast<void>(work.notes.remove(result));
    return 0;
  }
  if (isNew) hooks.tell();
  return 1;
}

int activateAccount(const char* account, SuspendedBy by, Text& result) {
  AccountWork work(account);
  if (!work.openWhole(result)) return 0;
  if (by == SuspendedBy::tally && work.record.isValue("account", "OFF")) {
    return fail(result, "Account ", account, " was suspended by a person");
  }
  return activate(work, by, result);
}

int dropSuspensionReasons(const char* account, const char* reasons, Text& result) {
  AccountWork work(account);
  if (!work.open(result)) return 0;
  const std::string before = wordsOfBoth(text_detail::part(work.record.getValue("suspended_reason")), "");
  const std::string left = wordsWithout(before, text_detail::part(reasons));
  if (left == before) return 1;
  if (left.empty() && work.isSuspended() && !work.record.isValue("account", "OFF")) {
    return findHolder(account, work.holder, result) && activate(work, SuspendedBy::tally, result);
  }
  const auto change = [&](ConfigFile& record) { record.setParam("suspended_reason", left.c_str()); };
  return changeRecord(work.record.getFilename(), change, result);
}

}  // namespace zvtaskq
