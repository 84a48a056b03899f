#include "tally/run/actions.h"

#include <string>
#include <vector>

#include "account/model/account_name.h"
#include "account/model/address_count.h"
#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/newer_release.h"
#include "core/panel/panel_paths.h"
#include "core/panel/progress.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "services/certificate/check.h"
#include "tally/bruteforce/records/entry_log.h"
#include "tally/checks/hostname.h"
#include "tally/checks/partition_check.h"
#include "tally/disk/mail_counting.h"
#include "tally/disk/quota_tables.h"
#include "tally/logs/panel_logs.h"
#include "tally/run/reset.h"
#include "tally/run/tally.h"
#include "tally/traffic/home_traffic.h"

namespace zvtaskq {

namespace {

constexpr int kPartitionsWithTally = 2;

struct Mode {
  const char* action;
  int mask;
};
constexpr Mode kModes[] = {{"tally", kTallyAll},
                           {"quotatally", kTallyDisk | kTallyCounts},
                           {"bandwidthtally", kTallyBandwidth | kTallyCounts}};

int maskOf(const Task& task) {
  for (const Mode& mode : kModes) {
    if (task.is("action", mode.action)) return mode.mask;
  }
  return kTallyAll;
}

/// Fills the tables for all accounts, or for these. What could not be counted is in the error log by then.
int readQuotas(const std::vector<std::string>& accounts = {}) {
  return getAllQuotas(sys_conf, quotaTables().quotas, quotaTables().inodes, accounts);
}

/// The account that a task names, and with a reseller those of his users.
std::vector<std::string> accountsOf(const Task& task) {
  std::vector<std::string> accounts{joined(task.value())};
  if (!task.is("type", "reseller")) return accounts;
  PanelList users(accountFile(task.value(), "users.list"));
  // Without the list the reseller's own remains.
  static_cast<void>(isAccountName(task.value()) && users.readFile());
  for (int i = 0; i < users.size(); ++i) accounts.emplace_back(users.getElementAt(i));
  return accounts;
}

int tallyScope(Tally& tally, int mask) {
  const int whole = tally.tallyHo(&quotaTables().quotas, &quotaTables().inodes, mask);
  if (!tally.result.isEmpty()) systemLog("%s", tally.result.get());
  return whole;
}

int afterTally() {
  if (sys_conf->restart_apache_after_tally) queueTask("httpd", "restart");
  runFlags.checkqueue = 1;
  return 1;
}

/// The rest of the full tally, when all that may be long is done.
void keepHouse(const Task& task) {
  if (!task.is("action", "tally")) return;
  setMark(kPanelLogsMark);
  rotatePanelLogs(sys_conf);
}

int tallyAll(const Task& task) {
  const TaskTracking tracking(task.record);
  const int mask = maskOf(task);
  int whole = readQuotas();
  checkHostname();
  if (sys_conf->check_partitions == kPartitionsWithTally) check_partition_usage(sys_conf);
  noteNewerRelease();
  if (mask == kTallyAll) static_cast<void>(recountIps());
  Tally tally(kTallyServer, sys_conf, nullptr);
  whole &= tallyScope(tally, mask);
  const bool isHalted = runFlags.halt;
  if (!isHalted) whole &= tally.getAllocations();
  static_cast<void>(clear_brute_log_entries(sys_conf));
  if (!isHalted) static_cast<void>(checkCertificates(nullptr));
  keepHouse(task);
  return afterTally() && whole && !isHalted ? 1 : 0;
}

int tallyOne(const Task& task) {
  const TaskTracking tracking(task.record);
  int whole = readQuotas(accountsOf(task));
  Tally tally(task.is("type", "reseller") ? kTallyReseller : kTallyUser, sys_conf, task.value());
  whole &= tallyScope(tally, maskOf(task));
  return afterTally() && whole ? 1 : 0;
}

int tallyHomeDirectories(const Task&) {
  return parseHomeDirBandwidth();
}

/// Mail that was sent before a reset belongs before it: what is on its way into the tally files gets there first.
int resetWhole(History history) {
  rotate_email_usage(sys_conf);
  return resetUsage(*sys_conf, history);
}

int resetAll(const Task&) {
  errorLog("Reset All has started");
  const int whole = resetWhole(History::keep);
  queueTask("tally", "all");
  runFlags.checkqueue = 1;
  errorLog("Reset All has finished");
  return whole;
}

int resetUser(const Task& task) {
  rotate_email_usage(sys_conf);
  const int whole = resetUsageOf(*sys_conf, task.value(), History::keep);
  queueTask("tally", task.value(), "user");
  runFlags.checkqueue = 1;
  return whole;
}

int cleanResetAll(const Task&) {
  errorLog("Clean Reset All has started");
  const int whole = resetWhole(History::drop);
  runFlags.checkqueue = 1;
  errorLog("Clean Reset All has finished");
  return whole;
}

constexpr ActionRow kRows[] = {
    {"tally", "value", "all", tallyAll, "tallies all accounts"},
    {"tally", "type", "user", tallyOne, "tallies a user"},
    {"tally", "type", "reseller", tallyOne, "tallies a reseller and its users"},
    {"quotatally", "value", "all", tallyAll, "tallies the disk usage of all accounts"},
    {"quotatally", "type", "user", tallyOne, "tallies the disk usage of a user"},
    {"quotatally", "type", "reseller", tallyOne, "tallies the disk usage of a reseller and its users"},
    {"bandwidthtally", "value", "all", tallyAll, "tallies the bandwidth of all accounts"},
    {"bandwidthtally", "type", "user", tallyOne, "tallies the bandwidth of a user"},
    {"bandwidthtally", "type", "reseller", tallyOne, "tallies the bandwidth of a reseller and its users"},
    {"bandwidth", "value", "homedir", tallyHomeDirectories, "tallies the bandwidth noted in home directories"},
    {"reset", "value", "all", resetAll, "sets all usage counters back and tallies anew"},
    {"reset", "type", "user", resetUser, "sets a user's usage counters back and tallies anew"},
    {"cleanreset", "value", "all", cleanResetAll, "sets all usage counters back"},
};

}  // namespace

ActionRows tallyActions() {
  return kRows;
}

}  // namespace zvtaskq
