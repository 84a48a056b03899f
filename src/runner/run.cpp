#include "runner/run.h"

#include "core/config/config.h"
#include "core/sys/log.h"
#include "runner/actions/mail_operations.h"
#include "runner/actions/tally_operations.h"
#include "runner/monitor/service_watch.h"
#include "runner/process_queue.h"
#include "runner/upkeep/panel_logins.h"

namespace zvtaskq {

namespace {

constexpr int kPartitionsEveryRun = 1;

void checkServer(const Config& conf) {
  if (conf.check_partitions == kPartitionsEveryRun) tallyOperations().checkPartitions();
  if (conf.check_load > 0) tallyOperations().checkLoad();
  if (conf.brute_force_log_scanner != 0) tallyOperations().scanBruteForceLogs();
  if (conf.block_cracking_unblock > 1) {
    for (const int list : {0, 1}) mailOperations().unblockSenders(list);
  }
}

void cleanUp() {
  clearOldLoginAttempts();
  clear_old_blacklisted_ips();
  clearOldPasswordResetRequests();
}

}  // namespace

void doQueue(const Config& conf) {
  processQueue(conf.taskqueuecb, 0);
  if (conf.customBuild) return;
  process_mail_queue(conf.mailtaskqueue);
  processQueue(conf.taskqueue, 0);
  processQueue(conf.secondTaskQueue, 0);
  checkServices();
  checkServer(conf);
  cleanUp();
  reportUnavailable("upkeep");
}

}  // namespace zvtaskq
