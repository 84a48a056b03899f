// Rows of usage accounting: tallies, counters set back, caches.
#include "core/config/config.h"
#include "core/panel/run_flags.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "notify/operations.h"
#include "runner/actions/account_operations.h"
#include "runner/actions/action_rows.h"
#include "runner/actions/mail_operations.h"
#include "runner/actions/services_operations.h"
#include "runner/actions/tally_operations.h"
#include "tally/checks/hostname.h"

namespace zvtaskq {

namespace {

constexpr int kPartitionsWithTally = 2;

int tallyModeOf(const Task& task) {
  if (task.is("action", "bandwidthtally")) return kTallyBandwidth;
  if (task.is("action", "quotatally")) return kTallyQuota;
  return kTallyEverything;
}

void tallyAllAccounts(int mode) {
  checkHostname();
  if (sys_conf->check_partitions == kPartitionsWithTally) tallyOperations().checkPartitions();
  serviceOperations().tallyHook();
  if (mode == kTallyEverything) accountOperations().recountIpStatistics();
  tallyOperations().tallyAll(mode);
  tallyOperations().totalAllocations();
  tallyOperations().clearBruteForceEntries();
  serviceOperations().checkCertificates();
}

void cacheAllUsers(const Task& task) {
  ListFile selected(nullptr);
  selectedOf(task, selected);
  tallyOperations().cacheAllUsers(&selected, task.given("add_created_users") != nullptr);
}

void cacheSafeMode(const Task&) {
  serviceOperations().rebuildSafeModeCache();
}

constexpr TaskRow kCaches[] = {{"showallusers", cacheAllUsers}, {"safemode", cacheSafeMode}};

void resetAllCounters() {
  errorLog("Reset All has started");
  tallyOperations().resetAll();
  queueTask("tally", "all");
  runFlags.checkqueue = 1;
  errorLog("Reset All has finished");
}

}  // namespace

void tallyAction(const Task& task) {
  const int mode = tallyModeOf(task);
  tallyOperations().readAllQuotas();
  if (task.is("value", "all")) {
    tallyAllAccounts(mode);
  } else if (task.is("type", "user")) {
    tallyOperations().tallyUser(task.value(), mode);
  } else if (task.is("type", "reseller")) {
    tallyOperations().tallyReseller(task.value(), mode);
  } else {
    errorLog("executeCommand: can't figure out what to tally for '%s'", task.line);
    return;
  }
  if (sys_conf->restart_apache_after_tally) queueTask("httpd", "restart");
  runFlags.checkqueue = 1;
}

void systemCheckAction(const Task&) {
  Text report;
  if (serviceOperations().checkSystem.missing() || serviceOperations().checkSystem(&report)) return;
  notifyOperations().notifyAdmins("", "A system issue requires your attention", report.orEmpty(), 1);
}

void cacheAction(const Task& task) {
  if (runRow(kCaches, task.value(), task)) return;
  if (task.is("type", "popquota")) {
    mailOperations().cacheMailboxUsage(task.given("value"));
  } else {
    errorLog("executeCommand: can't figure out what to cache for '%s'", task.line);
  }
}

void bandwidthAction(const Task& task) {
  if (task.is("value", "homedir")) {
    tallyOperations().tallyHomeDirectories();
  } else {
    errorLog("executeCommand: can't figure out what bandwidth to tally for '%s'", task.line);
  }
}

void resetAction(const Task& task) {
  if (task.is("value", "all")) {
    resetAllCounters();
  } else if (task.is("type", "user")) {
    tallyOperations().resetUser(task.value());
    queueTask("tally", task.value(), "user");
    runFlags.checkqueue = 1;
  } else {
    errorLog("executeCommand: can't figure out what reset to do %s", task.line);
  }
}

void cleanResetAction(const Task& task) {
  if (!task.is("value", "all")) {
    errorLog("executeCommand: can't figure out what reset to do %s", task.line);
    return;
  }
  errorLog("Clean Reset All has started");
  tallyOperations().cleanResetAll();
  runFlags.checkqueue = 1;
  errorLog("Clean Reset All has finished");
}

}  // namespace zvtaskq
