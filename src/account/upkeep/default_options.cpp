// Features of accounts that were made before there were these features.
#include "account/model/account_record.h"
#include "account/upkeep/each_account.h"
#include "account/upkeep/rows.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/record/record_lock.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

struct Option {
  const char* key;
  const char* value;
};
constexpr Option kOptions[] = {{"spam", "ON"},     {"cron", "ON"},       {"sysinfo", "ON"},
                               {"catchall", "ON"}, {"login_keys", "ON"}, {"inode", "unlimited"}};

/// Whether the record got any.
bool addMissing(ConfigFile& record) {
  bool added = false;
  for (const Option& option : kOptions) {
    if (record.existsParam(option.key)) continue;
    record.setParam(option.key, option.value);
    added = true;
  }
  return added;
}

int tell(const ConfigFile& record) {
  errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
  return 0;
}

int addTo(const char* account) {
  ConfigFile seen(nullptr);
  seen.useLock = false;
  if (!readAccount(account, seen)) return tell(seen);
  if (!addMissing(seen)) return 1;
  ConfigFile record(seen.getFilename());
  record.belongsTo(kPanelUser);
  const RecordLock lock(record);
  if (!readAccount(account, record)) return tell(record);
  return !addMissing(record) || record.writeFile() ? 1 : tell(record);
}

}  // namespace

int addOptions(const Task&) {
  return isDemo() ? 1 : forEachAccount(nullptr, "the default features", addTo);
}

}  // namespace zvtaskq
