// Rows of backup and restore.
#include <string>

#include "account/model/account_record.h"
#include "core/panel/progress.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "notify/operations.h"
#include "runner/actions/action_rows.h"
#include "runner/actions/backup_operations.h"
#include "runner/actions/tally_operations.h"

namespace zvtaskq {

namespace {

/// The kinds of owner that have jobs of their own, and the words for each.
struct OwnerKind {
  const char* type;
  const char* unreadable;
  Operation<BackupJob*> BackupOperations::*backup;
  Operation<BackupJob*> BackupOperations::*restore;
};
constexpr OwnerKind kOwnerKinds[] = {
    {"reseller", "Cannot read data for Reseller %s : %s", &BackupOperations::backupForReseller,
     &BackupOperations::restoreForReseller},
    {"admin", "Cannot read data for Admin %s : %s", &BackupOperations::backupForAdmin,
     &BackupOperations::restoreForAdmin},
};

const OwnerKind* ownerKindOf(const Task& task) {
  for (const OwnerKind& kind : kOwnerKinds) {
    if (task.is("type", kind.type)) return &kind;
  }
  return nullptr;
}

int readOwner(const char* format, const char* name, ConfigFile& owner) {
  if (readAccount(name, owner)) return 1;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  errorLog(format, name, owner.result.orEmpty());
#pragma GCC diagnostic pop
  return 0;
}

/// Stores a message for the owner of a job.
void messageOwner(const Task& task, const std::string& subject, const Text& body) {
  ConfigFile message(nullptr);
  message.setParam("user", "multiple");
  message.setParam("priority", "30");
  message.setParam("subject", subject.c_str());
  message.setParam("message", body.orEmpty());
  ListFile recipients(nullptr);
  recipients.addElement(task.get("owner"));
  notifyOperations().sendSystemMessage(&message, &recipients);
}

/// The line's "supress_message": "0" tells always, "2" never, "1" of failures; else the job's own rule decides.
bool tellsOwner(const Task& task, bool succeeded, bool due) {
  if (task.is("supress_message", "0")) return true;
  if (task.is("supress_message", "1")) return !succeeded;
  if (task.is("supress_message", "2")) return false;
  return due;
}

void backupOneUser(const Task& task) {
  const char* user = task.value();
  systemLog("Running Backup: type=%s user=%s", task.type(), user);
  ConfigFile account(nullptr);
  if (!readOwner("Cannot read data for user %s : %s", user, account)) return;
  const auto& backup = backupOperations().backupUser;
  if (backup.missing()) return;
  track_process("Backup User %s", user);
  BackupJob job{&account, &task.record, {}, false};
  if (!backup(&job)) errorLog("Error Backing up user %s : %s", user, job.report.orEmpty());
  track_process("Backup of User %s complete", user);
}

void backupForOwner(const Task& task) {
  const OwnerKind& kind = *ownerKindOf(task);
  const char* owner = task.get("owner");
  systemLog("Running Backup: type=%s owner=%s id=%s", task.type(), owner, task.get("id"));
  ConfigFile account(nullptr);
  if (!readOwner(kind.unreadable, owner, account)) return;
  const auto& backup = backupOperations().*kind.backup;
  if (backup.missing()) return;
  BackupJob job{&account, &task.record, {}, false};
  const bool succeeded = backup(&job) != 0;
  if (!tellsOwner(task, succeeded, job.messageDue)) return;
  const std::string id = task.given("id") == nullptr ? std::string() : joined(" (id=", task.get("id"), ")");
  messageOwner(task, joined(succeeded ? "Your backups are now ready" : "An error occurred during the backup", id),
               job.report);
}

void backupSystem(const Task&) {
  backupOperations().backupSystem();
}

/// A schedule made before databases or mail could be chosen alone means to have their data too.
struct AwareSelection {
  const char* item;
  const char* marker;
  const char* warning;
  const char* slot;
  const char* data;
};
constexpr AwareSelection kAwareSelections[] = {
    {"database", "database_data_aware",
     "*** WARNING:  A backup cron was created, that does not contain database_aware=yes", "select99", "database_data"},
    {"email", "email_data_aware", "*** WARNING:  A backup cron was created, that does not contain email_aware=yes",
     "select98", "email_data"},
};

bool selects(const Task& task, std::string_view item) {
  ListFile selected(nullptr);
  selectedOf(task, selected);
  for (int i = 0; i < selected.size(); ++i) {
    if (item == selected.getElementAt(i)) return true;
  }
  return false;
}

void completeSelection(const Task& task) {
  for (const AwareSelection& row : kAwareSelections) {
    if (!selects(task, row.item) || selects(task, row.marker) || task.given(row.marker) != nullptr) continue;
    errorLog("%s", row.warning);
    systemLog("%s", row.warning);
    task.record.setParam(row.slot, row.data);
  }
}

void backupOfSite(const Task& task) {
  const char* user = task.value();
  ConfigFile account(nullptr);
  if (!readAccount(user, account)) {
    errorLog("%s%s: %s", "Unable to read the User data for ", user, account.result.orEmpty());
    return;
  }
  const AccountType type = accountTypeOf(account);
  if (type == AccountType::unknown) {
    errorLog("SiteBackup: User %s has unknown user type! : %d", user, static_cast<int>(type));
    return;
  }
  completeSelection(task);
  const auto& backup = backupOperations().backupSite;
  if (backup.missing()) return;
  BackupJob job{&account, &task.record, {}, false};
  if (backup(&job)) {
    systemLog("%s", "Backup created");
  } else {
    errorLog("Error Backing up user %s : %s", user, job.report.orEmpty());
  }
}

constexpr TaskRow kBackups[] = {{"user", backupOneUser},
                                {"reseller", backupForOwner},
                                {"admin", backupForOwner},
                                {"system", backupSystem},
                                {"sitebackup", backupOfSite}};

}  // namespace

void backupAction(const Task& task) {
  const TaskTracking tracking(task.record);
  if (runRow(kBackups, task.type(), task)) return;
  errorLog("type='%s' is an unknown type for the backup action", task.type());
}

void restoreAction(const Task& task) {
  const OwnerKind* kind = ownerKindOf(task);
  if (kind == nullptr) {
    errorLog("type=%s is an unknown type for the restore action", task.type());
    return;
  }
  ConfigFile account(nullptr);
  if (!readOwner(kind->unreadable, task.get("owner"), account)) return;
  const auto& restore = backupOperations().*kind->restore;
  if (restore.missing()) return;
  BackupJob job{&account, &task.record, {}, false};
  const bool succeeded = restore(&job) != 0;
  messageOwner(task, succeeded ? "Your User files have been restored" : "An error occurred during the restore.",
               job.report);
  ListFile everybody(nullptr);
  tallyOperations().cacheAllUsers(&everybody, false);
}

}  // namespace zvtaskq
