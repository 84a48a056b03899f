#include "backup/job/actions.h"

#include <string_view>

#include "account/model/account_record.h"
#include "core/panel/progress.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

int backupOneUser(const Task& task) {
  const TaskTracking tracking(task.record);
  systemLog("Running Backup: type=%s user=%s", task.type(), task.value());
  ConfigFile account(nullptr);
  if (readAccount(task.value(), account)) return 1;
  errorLog("Cannot read data for user %s : %s", task.value(), account.result.orEmpty());
  return 0;
}

int backupForOwner(const Task& task) {
  const TaskTracking tracking(task.record);
  systemLog("Running Backup: type=%s owner=%s id=%s", task.type(), task.get("owner"), task.get("id"));
  ConfigFile owner(nullptr);
  return readOwner(task, owner);
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
    if (!selects(task, row.item) || selects(task, row.marker) || task.isOn(row.marker)) continue;
    errorLog("%s", row.warning);
    systemLog("%s", row.warning);
    task.record.setParam(row.slot, row.data);
  }
}

int backupOfSite(const Task& task) {
  const TaskTracking tracking(task.record);
  const char* user = task.value();
  ConfigFile account(nullptr);
  if (!readAccount(user, account)) {
    errorLog("%s%s: %s", "Unable to read the User data for ", user, account.result.orEmpty());
    return 0;
  }
  const AccountType type = accountTypeOf(account);
  if (type == AccountType::unknown) {
    errorLog("SiteBackup: User %s has unknown user type! : %d", user, static_cast<int>(type));
    return 0;
  }
  completeSelection(task);
  return 1;
}

constexpr ActionRow kRows[] = {
    {"backup", "type", "user", backupOneUser, "backs a user up"},
    {"backup", "type", "reseller", backupForOwner, "backs up users of a reseller"},
    {"backup", "type", "admin", backupForOwner, "backs up users for an administrator"},
    {"backup", "type", "sitebackup", backupOfSite, "backs up what a user chose of his own"},
};

}  // namespace

ActionRows backupActions() {
  return kRows;
}

}  // namespace zvtaskq
