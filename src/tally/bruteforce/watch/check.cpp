#include "tally/bruteforce/watch/check.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "core/files/lock_file.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "tally/bruteforce/lines/data_paths.h"
#include "tally/bruteforce/lines/filters.h"
#include "tally/bruteforce/lines/web_log_list.h"
#include "tally/bruteforce/records/entry_log.h"
#include "tally/bruteforce/watch/notices.h"
#include "tally/bruteforce/watch/scan.h"
#include "tally/bruteforce/watch/unblock.h"

namespace zvtaskq {

namespace {

constexpr const char* kLockName = "check_brute_force_logs";
constexpr int kLockAge = 10800;

/// In the order they are scanned.
constexpr BruteGroup kGroups[] = {
    {1, &Config::brute_force_secure_log, {"sshd", "proftpd"}, true},
    {2, &Config::brute_force_exim_log, {"exim"}, true},
    {3, &Config::brute_force_mail_log, {"dovecot"}, true},
    {5, &Config::brute_force_roundcube_log, {"roundcube"}, false},
    {6, &Config::brute_force_squirrelmail_log, {"squirrelmail"}, false},
    {7, &Config::brute_force_pma_log, {"phpmyadmin"}, false},
};
constexpr BruteGroup kPureFtpGroup{4, &Config::brute_force_messages_log, {"pure-ftpd"}, true};
constexpr BruteGroup kWebGroup{8, nullptr, {"wordpress"}, false};

int takeScanLock(FileLock& lock) {
  const std::string path = adminFile(kLockName);
  if (!openStateFolder()) {
    errorLog("Unable to lock %s: %s: %s", path.c_str(), stateFile("").c_str(), std::strerror(errno));
    return 0;
  }
  char reason[kLockReasonSize] = "";
  const AsUser panel(kPanelUser);
  if (lock.takeForLife(path.c_str(), stateFile(kLockName).c_str(), kLockAge, kLockName, reason)) return 1;
  debug(100, "%s is locked.  Not going to scan logs", path.c_str());
  // One that nobody holds and that cannot be made would silence the monitor for good.
  if (std::string_view(reason).starts_with("open error")) errorLog("Unable to lock %s: %s", path.c_str(), reason);
  return 0;
}

int readState(ConfigFile& state) {
  state.belongsTo(kPanelUser);
  if (!state.exists()) {
    debug(100, "Error reading %s: %s.  Note, it won't exist by default, so this error may be meaningless",
          state.getFilename(), "there is no such file");
    return 1;
  }
  if (state.readFile()) return 1;
  // Without it every log would be counted again from its beginning.
  tellUnreadable(state);
  return 0;
}

/// Scans the logs in their order, until all are done or as much has been found as one scan may keep.
void scanGroups(const Config& conf, ConfigFile& state, BruteScan& scan) {
  const auto scanGroup = [&](const BruteGroup& group, const char* path) {
    if (!scan.isFull()) static_cast<void>(scan_log(path, group, state, scan));
  };
  for (const BruteGroup& group : kGroups) scanGroup(group, conf.*group.log);
  if (conf.pureftp) scanGroup(kPureFtpGroup, conf.*kPureFtpGroup.log);
  if (conf.brute_force_scan_apache_logs == 0) return;
  ListFile webLogs(nullptr);
  static_cast<void>(get_apache_logs_from_brute_conf(&conf, state, webLogs));
  for (int i = 0; i < webLogs.size(); ++i) scanGroup(kWebGroup, webLogs.getElementAt(i));
}

/// Reads what is new in the logs into the files. Says in `counted` whether that changed the counts.
int countNew(const Config& conf, BruteFiles& files, bool& counted) {
  ConfigFile state(bruteStateFile().c_str());
  BruteFilters filters;
  if (!readState(state) || !filters.read(conf) || !files.addresses.read() || !files.users.read()) return 0;
  for (bool more = true; more;) {
    BruteScan scan(conf, filters.all());
    scanGroups(conf, state, scan);
    scan.tellDoubts();
    more = scan.isFull();
    if (more) errorLog("So many names failed to log in that they are counted in several steps");
    if (!scan.spool.finish()) {
      errorLog("Error writing %s: %s", scan.spool.entries().path.c_str(), std::strerror(errno));
      return 0;
    }
    if (!commitBruteFindings(conf, scan.findings, scan.spool.entries(), state, files)) return 0;
    counted = counted || scan.spool.entries().count > 0;
  }
  return 1;
}

int dropOld(const Config& conf, BruteRecords& records) {
  if (!holdsOldBruteEntries(conf, records.counts())) return 1;
  return records.update([&conf](ConfigFile& counts) { static_cast<void>(clear_old_brute_entries(conf, counts)); });
}

void scanAndTell(const Config& conf) {
  BruteFiles files;
  bool counted = false;
  if (!finishBruteJournal(conf, files) || !countNew(conf, files, counted)) return;
  if (!counted && (!dropOld(conf, files.addresses) || !dropOld(conf, files.users))) return;
  static_cast<void>(tellBruteForce(conf, files));
  if (conf.unblock_brute_ip_time != 0) static_cast<void>(unblock_bfm_ips(&conf));
}

}  // namespace

void check_brute_force_logs(const Config* conf) {
  if (conf->brute_force_log_scanner == 0 || isDemo()) return;
  FileLock lock;
  if (!takeScanLock(lock)) return;
  scanAndTell(*conf);
  const AsUser panel(kPanelUser);
  lock.release();
}

}  // namespace zvtaskq
