#include "runner/upkeep/panel_logins.h"

#include <ctime>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

constexpr int kResetRequestAge = 7200;

/// The time that the entry in slot i carries under `key`, 0 when it carries none.
long long timeOf(const ConfigFile& record, long long i, const char* key) {
  ConfigFile entry(nullptr);
  entry.fillFromPost(record.getValueAt(i));
  long long time = 0;
  static_cast<void>(entry.getValue(key, &time));
  return time;
}

/// Empties the slots whose entry is too old, and closes the gaps. Returns how many there were.
template <class IsOld>
long long dropOld(ConfigFile& record, IsOld isOld) {
  const long long count = record.size();
  for (long long i = 0; i < count; ++i) {
    if (isOld(i)) record.deleteParamAt(i);
  }
  record.shift_down_and_count();
  return count - record.size();
}

/// The seconds since a log-in, as a signed 32-bit number. Whatever stands in the file, nothing overflows.
int loginAge(long long time) {
  return static_cast<int>(static_cast<unsigned>(std::time(nullptr)) - static_cast<unsigned>(time));
}

}  // namespace

void clearOldLoginAttempts() {
  const std::string path = adminFile("login.hist");
  PanelRecord history(path);
  const RecordLock lock(history);
  if (!history.readFile()) {
    errorLog("Unable to read %s: %s", path.c_str(), history.result.orEmpty());
    return;
  }
  dropOld(history,
          [&](long long i) { return loginAge(timeOf(history, i, "date")) > sys_conf->brute_force_time_limit; });
  if (!history.writeFile()) errorLog("Unable to write %s: %s", path.c_str(), history.result.orEmpty());
}

void clearOldPasswordResetRequests() {
  if (!sys_conf->lost_password) return;
  const std::string path = adminFile("lost_password_request.txt");
  PanelRecord requests(path);
  const RecordLock lock(requests);
  if (!requests.readFile()) return;
  const long long oldest = std::time(nullptr) - kResetRequestAge;
  dropOld(requests, [&](long long i) { return timeOf(requests, i, "time") < oldest; });
  if (!requests.writeFile()) errorLog("Unable to write %s : %s", path.c_str(), requests.result.orEmpty());
}

void clear_old_blacklisted_ips() {
  if (isDemo() || sys_conf->bruteforce == 0 || sys_conf->clear_blacklist_ip_time == 0) return;
  const char* path = sys_conf->ip_blacklist;
  const AsRoot root;
  struct stat what {};
  if (sys::lstat(path, what) != 0) return;
  ConfigFile blacklist(path);
  blacklist.setUser("root");
  const RecordLock lock(blacklist);
  if (!blacklist.readFile(1)) {
    debug(200, "Unable to read %s to clear blacklisted IPs: %s", path, blacklist.result.orEmpty());
    return;
  }
  const long long now = std::time(nullptr);
  const long long limit = static_cast<long long>(sys_conf->clear_blacklist_ip_time) * 60;
  const long long dropped = dropOld(blacklist, [&](long long i) {
    long long since = 0;
    const char* value = blacklist.getValueAt(i);
    if (value == nullptr || std::sscanf(value, "%lld", &since) != 1 || since == 0 || since >= now - limit) return false;
    debug(200, "Removing %s from the %s", blacklist.getNameAt(i), path);
    return true;
  });
  if (dropped == 0 || blacklist.writeFile()) return;
  errorLogAndDebug(200, "Error writing %s to remove blacklisted IPs: %s", path, blacklist.result.orEmpty());
}

}  // namespace zvtaskq
