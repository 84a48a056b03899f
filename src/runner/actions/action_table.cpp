#include "runner/actions/action_table.h"

#include <unistd.h>

#include "core/panel/run_flags.h"
#include "core/panel/task.h"
#include "core/panel/task_queue.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/operation.h"
#include "core/text/system_result.h"
#include "runner/actions/action_rows.h"
#include "runner/monitor/process_table.h"
#include "runner/monitor/service_watch.h"
#include "runner/monitor/services_table.h"

namespace zvtaskq {

namespace {

constexpr TaskRow kActions[] = {
    {"tally", tallyAction},
    {"quotatally", tallyAction},
    {"bandwidthtally", tallyAction},
    {"syscheck", systemCheckAction},
    {"sync", syncAction},
    {"cache", cacheAction},
    {"bandwidth", bandwidthAction},
    {"confirm", confirmAction},
    {"confirm_removed", confirmRemovedAction},
    {"backup", backupAction},
    {"convert", convertAction},
    {"delete", deleteAction},
    {"addspam", addOptionsAction},
    {"addoptions", addOptionsAction},
    {"restore", restoreAction},
    {"vacation", vacationAction},
    {"reset", resetAction},
    {"cleanreset", cleanResetAction},
    {"notify", notifyAction},
    {"rewrite", rewriteAction},
    {"defaultspam", defaultSpamAction},
    {"update", updateAction},
    {"ipswap", ipSwapAction},
};

void reportNoAction(const char* line, const ConfigFile& record) {
  errorLog("executeCommand:invalid action: %s", line);
  if (isDebug() < 2000) return;
  debug(2000, "executeCommand:invalid action: %s", line);
  record.printContents(0);
}

/// A service that was not told to stop must run afterwards; if it does not, it is given one restart.
void serviceAction(const Task& task) {
  const char* service = task.action();
  const char* verb = task.value();
  if (!existIn(verb, kServiceVerbs)) {
    errorLog("Invalid action in: %s", task.line);
    return;
  }
  doservice(service, verb);
  if (task.is("value", "stop") || running(service)) return;
  errorLog("%s didn't %s properly, re-starting", service, verb);
  doservice(service, "restart");
}

}  // namespace

void executeTask(const char* line, ConfigFile& record) {
  const char* action = record.getValue("action");
  if (action == nullptr || *action == '\0') {
    reportNoAction(line, record);
    return;
  }
  debug(10, "zvtaskq: command: %s", line);
  const Task task{line, record};
  if (existIn(action, kSystemServices) || is_other_service(action)) {
    serviceAction(task);
  } else {
    // A word that matches nothing is dropped on purpose: newer parts of the panel may queue what this one knows not.
    runRow(kActions, action, task);
  }
  reportUnavailable(line);
}

void executeCommand(const char* line) {
  ConfigFile record(nullptr);
  record.fillFromPost(line);
  executeTask(line, record);
}

void selectedOf(const Task& task, ListFile& selected) {
  selected.keepOrder = true;
  for (int i = 0;; ++i) {
    const char* name = task.given(joined("select", std::to_string(i)).c_str());
    if (name == nullptr) return;
    selected.addElement(name);
  }
}

void queueTask(const char* action, const char* value, const char* type) {
  if (pushOnTaskQueue(action, value, type)) return;
  errorLog("Unable to queue action=%s&value=%s: %s", action, value, getSysResult());
}

}  // namespace zvtaskq
