#include "tally/logs/mod_security_logs.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"
#include "core/tree/safe_walk.h"
#include "tally/logs/rotation.h"
#include "tally/logs/web_logs.h"

namespace zvtaskq {

namespace {

constexpr const char* kLogs[] = {"modsec_audit.log", "modsec_debug.log"};
constexpr long long kDay = 86400;

void rotateAbove(std::string folder, const Config* conf) {
  while (folder.ends_with('/')) folder.pop_back();
  const std::size_t slash = folder.rfind('/');
  if (slash == std::string::npos) return;
  // A failure is in the error log by then.
  for (const char* log : kLogs) {
    static_cast<void>(rotate_log_up((folder.substr(0, slash + 1) + log).c_str(), conf, 0, false));
  }
}

/// The midnight that begins the day a folder is named for; nothing for any other name.
std::optional<long long> dayOf(const std::string& name) {
  if (name.size() != 8 || name.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  return getTimeFrom(name.substr(0, 4).c_str(), name.substr(4, 2).c_str(), name.substr(6).c_str(), nullptr);
}

/// Deletes a folder with all that is in it. The way to it is an open descriptor, which nobody can lead elsewhere.
void deleteTree(int parent, const std::string& name, const std::string& shownParent) {
  const std::string top = joined("/proc/self/fd/", std::to_string(parent), "/", name);
  const auto visit = [](const TreeEntry& entry) {
    const bool isFolder = S_ISDIR(entry.what.st_mode);
    if (isFolder && !entry.leaving) return 1;
    return sys::unlinkat(entry.folder, entry.name, isFolder ? AT_REMOVEDIR : 0) == 0 || errno == ENOENT ? 1 : 0;
  };
  if (walkTree(top.c_str(), visit)) return;
  errorLog("Tally::rotate_mod_security_logs: unable to delete %s/%s: %s", shownParent.c_str(), name.c_str(),
           std::strerror(errno));
}

/// `levels` folders deep, the names that are no days are looked into.
void deleteOldDays(int folder, const std::string& shown, long long oldest, int levels) {
  std::vector<std::string> names;
  if (!namesIn(folder, names)) {
    errorLog("Tally::rotate_mod_security_logs: unable to read %s: %s", shown.c_str(), std::strerror(errno));
  }
  for (const std::string& name : names) {
    const Descriptor inner(sys::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK));
    if (!inner) continue;
    const std::optional<long long> day = dayOf(name);
    if (day && *day < oldest) deleteTree(folder, name, shown);
    if (!day && levels > 1) deleteOldDays(inner.get(), joined(shown, "/", name), oldest, levels - 1);
  }
}

}  // namespace

void rotate_mod_security_logs(const Config* conf) {
  rotateAbove(mainLogFolder(*conf), conf);
  if (conf->nginx_proxy != 0) rotateAbove(proxyLogFolder(*conf), conf);
  const AsRoot root;
  const Descriptor audits = openGuardedFolder(conf->modsec_audit_dir.orEmpty());
  if (!audits && errno == ENOENT) return;
  if (!audits) {
    errorLog("Tally::rotate_mod_security_logs: unable to open %s: %s", conf->modsec_audit_dir.orEmpty(),
             std::strerror(errno));
    return;
  }
  // A folder is as old as the last second of its day.
  const long long oldest = static_cast<long long>(std::time(nullptr)) - (logs_to_keep(conf) + 1LL) * kDay;
  deleteOldDays(audits.get(), conf->modsec_audit_dir.orEmpty(), oldest, 2);
}

}  // namespace zvtaskq
