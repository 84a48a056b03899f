#include "notify/notice_limit.h"

#include <ctime>
#include <string>

#include "core/panel/panel_paths.h"
#include "core/record/config_file.h"
#include "core/record/record_lock.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

constexpr const char* kActive = "service_email_active";
constexpr const char* kLastSent = "service_email_last_sent";

bool isDue(const ConfigFile& settings, const std::string& path, long long now) {
  if (!settings.isValue(kActive, "yes") || !settings.existsParam(kLastSent)) return false;
  long long last = -1;
  static_cast<void>(settings.getValue(kLastSent, &last));
  const StampAge age = ageOf(last, now);
  if (age.isAhead) {
    errorLog("%s: %s is no time in the past, and is set anew: %s", path.c_str(), kLastSent,
             settings.getValue(kLastSent));
  }
  return age.seconds >= kServiceNoticeInterval;
}

}  // namespace

int mayNotifyOfService() {
  const std::string path = adminFile("admin.conf");
  ConfigFile settings(path.c_str());
  settings.callerLocation = "Ticket::notifyAdmins";
  // Held from reading to writing: of two programs that find a service down at once, one tells of it.
  const RecordLock lock(settings);
  if (!settings.readFile()) {
    errorLog("Unable to read: %s: %s", path.c_str(), settings.result.orEmpty());
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
