#include "notify/notice_limit.h"

#include <ctime>
#include <string>

#include "account/account_record.h"
#include "core/config_file.h"
#include "core/lock_file.h"
#include "core/log.h"
#include "core/privileges.h"

namespace zvtaskq {

namespace {

constexpr const char* kActive = "service_email_active";
constexpr const char* kLastSent = "service_email_last_sent";

bool isDue(const ConfigFile& settings, const std::string& path, long long now) {
  if (!settings.isValue(kActive, "yes") || !settings.existsParam(kLastSent)) return false;
  long long last = 0;
  if (!settings.getValue(kLastSent, &last) || last > now) {
    errorLog("%s: %s is no time in the past, and is set anew: %s", path.c_str(), kLastSent,
             settings.getValue(kLastSent));
    return true;
  }
  return now - last >= kServiceNoticeInterval;
}

}  // namespace

int mayNotifyOfService() {
  const std::string path = adminFile("admin.conf");
  const AsUser nobody("nobody");
  ConfigFile settings(path.c_str());
  settings.setUser(nullptr);
  settings.useLock = false;
  // Held from reading to writing: of two programs that find a service down at once, one tells of it.
  FileLock lock;
  char reason[kLockReasonSize] = "";
  const bool locked = lock.take(path.c_str(), kLockMaximumAge, "Ticket::notifyAdmins", reason) != 0;
  if (!locked || !settings.readFile()) {
    errorLog("Unable to read: %s: %s", path.c_str(), locked ? settings.result.orEmpty() : reason);
    return 0;
  }
  const long long now = std::time(nullptr);
  if (!isDue(settings, path, now)) return 0;
  settings.setParam(kLastSent, now);
  if (settings.writeFile()) return 1;
  errorLog("Unable to write %s: %s", path.c_str(), settings.result.orEmpty());
  return 0;
}

}  // namespace zvtaskq
