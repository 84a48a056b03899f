#include "account/suspension/actions.h"

#include "account/model/account_record.h"
#include "account/model/account_work.h"
#include "account/suspension/account_databases.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/safe_point.h"
#include "services/database/helper.h"

namespace zvtaskq {

namespace {

bool isSuspended(const char* account) {
  ConfigFile record(nullptr);
  return readAccount(account, record) && record.isValue("suspended", "yes");
}

/// 1 also for one that is not suspended any more when its turn comes.
int convertOne(const char* account, int& converted, bool& answers, Text& result) {
  AccountWork work(account);
  if (!work.open(result)) return 0;
  if (!work.isSuspended()) return 1;
  if (!convertSuspendedDatabases(account, work.notes, answers, result)) return 0;
  ++converted;
  return 1;
}

/// One account that cannot be converted keeps no other from it; a server that does not answer all of them.
int convertSuspended(const Task&) {
  if (isDemo() || !hasDatabases()) return 1;
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) {
    errorLog("Unable to read the accounts");
    return 0;
  }
  int converted = 0, failed = 0;
  bool answers = true;
  for (int i = 0; i < accounts.size() && answers; ++i) {
    const char* account = accounts.getElementAt(i);
    atSafePoint();
    if (!isSuspended(account)) continue;
    Text result;
    if (convertOne(account, converted, answers, result)) continue;
    errorLog("The database users of %s are not converted: %s", account, result.orEmpty());
    ++failed;
  }
  systemLog("The database users of %d suspended accounts are locked", converted);
  return failed == 0 ? 1 : 0;
}

constexpr ActionRow kRows[] = {
    {"convert", "value", "suspendedmysql", convertSuspended, "locks the database users of suspended accounts anew"},
};

}  // namespace

ActionRows suspensionActions() {
  return kRows;
}

}  // namespace zvtaskq
