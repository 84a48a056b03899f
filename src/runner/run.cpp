#include "runner/run.h"

#include "account/lifecycle/creation.h"
#include "account/suspension/account_databases.h"
#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "mail/email.h"
#include "runner/monitor/service_watch.h"
#include "runner/process_queue.h"
#include "runner/upkeep/panel_logins.h"
#include "services/rewrite/journal.h"
#include "tally/bruteforce/watch/check.h"
#include "tally/checks/load.h"
#include "tally/checks/partition_check.h"
#include "tally/logs/panel_logs.h"

namespace zvtaskq {

namespace {

constexpr int kPartitionsEveryRun = 1;

void checkServer(const Config& conf) {
  if (conf.check_partitions == kPartitionsEveryRun) check_partition_usage(&conf);
  if (conf.check_load > 0) check_system_load(&conf);
  if (conf.brute_force_log_scanner != 0) check_brute_force_logs(&conf);
  if (conf.block_cracking_unblock > 1) {
    for (const int list : {0, 1}) Email::check_block_cracking_auto_unblock(&conf, list);
  }
}

void cleanUp(const Config& conf) {
  clearOldLoginAttempts();
  clear_old_blacklisted_ips();
  clearOldPasswordResetRequests();
  // Where no tally runs, nobody else would.
  if (conf.log_rotate_size > 0 && isDueAgain(kPanelLogsMark)) rotatePanelLogs(&conf);
}

}  // namespace

void doQueue(const Config& conf) {
  processQueue(conf.taskqueuecb, 0);
  if (runFlags.customBuild) return;
  finishKilledRewrites();
  process_mail_queue(conf.mailtaskqueue);
  processQueue(conf.taskqueue, 0);
  processQueue(conf.secondTaskQueue, 0);
  checkServices();
  finishDatabaseWork();
  finishCreations();
  checkServer(conf);
  cleanUp(conf);
}

}  // namespace zvtaskq
