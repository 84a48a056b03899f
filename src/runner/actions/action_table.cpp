#include "runner/actions/action_table.h"

#include <algorithm>

#include "account/filters/actions.h"
#include "account/lifecycle/actions.h"
#include "account/suspension/actions.h"
#include "account/upkeep/actions.h"
#include "backup/job/actions.h"
#include "backup/restore/actions.h"
#include "core/sys/log.h"
#include "mail/actions.h"
#include "notify/actions.h"
#include "runner/actions/not_built.h"
#include "runner/monitor/process_table.h"
#include "runner/monitor/service_watch.h"
#include "runner/monitor/services_table.h"
#include "runner/syscheck/actions.h"
#include "runner/upkeep/actions.h"
#include "services/certificate/actions.h"
#include "services/dns/actions.h"
#include "services/ftp/actions.h"
#include "services/web/actions.h"
#include "tally/counts/actions.h"
#include "tally/run/actions.h"

namespace zvtaskq {

namespace {

/// What is said of a line whose variant no row takes.
struct ActionWord {
  std::string_view action;
  /// The error log's words with their one "%s"; null for none.
  const char* unknown = nullptr;
  /// The key whose value stands there; null for the whole line.
  const char* key = nullptr;
  bool debugsToo = false;
  /// Without a `value` none of the variants says what it is about.
  bool needsValue = false;
};
constexpr const char* kUnknownTally = "executeCommand: can't figure out what to tally for '%s'";
constexpr ActionWord kActions[] = {
    {"tally", kUnknownTally, nullptr, false, true},
    {"quotatally", kUnknownTally, nullptr, false, true},
    {"bandwidthtally", kUnknownTally, nullptr, false, true},
    {"syscheck"},
    {"sync"},
    {"cache"},
    {"bandwidth"},
    {"confirm"},
    {"confirm_removed"},
    {"backup", "type='%s' is an unknown type for the backup action", "type"},
    {"convert"},
    {"delete"},
    {"addspam"},
    {"addoptions"},
    {"restore", "type=%s is an unknown type for the restore action", "type"},
    {"vacation", "executeCommand: can't figure out what vacation message to do %s", nullptr, false, true},
    {"reset", "executeCommand: can't figure out what reset to do %s", nullptr, false, true},
    {"cleanreset"},
    {"notify"},
    {"rewrite", "Unknown rewrite: %s", "value", true},
    {"defaultspam"},
    {"update", "executeCommand: can't figure out what update to do %s"},
    {"ipswap"},
};

ActionRows (*const kRooms[])() = {tallyActions,  cacheActions,    webActions,        lifecycleActions,
                                  upkeepActions, backupActions,   mailActions,       restoreActions,
                                  notifyActions, ftpActions,      dnsActions,        certificateActions,
                                  panelActions,  syscheckActions, suspensionActions, filterActions};

const ActionWord* wordOf(const Task& task) {
  const std::string_view action = task.action();
  const auto* found = std::find_if(std::begin(kActions), std::end(kActions),
                                   [&](const ActionWord& word) { return word.action == action; });
  return found == std::end(kActions) ? nullptr : found;
}

void reportUnknown(const ActionWord& word, const Task& task) {
  const std::string shown = word.key == nullptr ? printableLine(task.line) : task.get(word.key);
  const char* what = shown.c_str();
  if (task.is("action", "ipswap")) return debug(10, "Did you forget &value=%s ?", "linked_ips");
  if (word.unknown == nullptr) return debug(10, "nothing to do for %s", what);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  errorLog(word.unknown, what);
  if (word.debugsToo) debug(10, word.unknown, what);
#pragma GCC diagnostic pop
}

void reportNoAction(const Task& task) {
  errorLogAndDebug(2000, "executeCommand:invalid action: %s", printableLine(task.line).c_str());
  if (isDebug() >= 2000) printContents(task);
}

/// A service that was not told to stop must run afterwards; if it does not, it is given one restart.
void serviceAction(const Task& task) {
  const char* service = task.action();
  const char* verb = task.value();
  if (!placeIn(verb, kServiceVerbs)) {
    errorLog("Invalid action in: %s", printableLine(task.line).c_str());
    return;
  }
  doservice(service, verb);
  if (task.is("value", "stop") || running(service)) return;
  errorLog("%s didn't %s properly, re-starting", service, verb);
  doservice(service, "restart");
}

/// A word that matches nothing is dropped on purpose: newer parts of the panel may queue what this one knows not.
void tableAction(const Task& task) {
  const ActionWord* word = wordOf(task);
  if (word == nullptr) return;
  const ActionRow* row = rowFor(task);
  const char* missing = missingFor(task);
  const bool isAboutNothing = word->needsValue && *task.value() == '\0';
  if (isAboutNothing || (row == nullptr && missing == nullptr)) return reportUnknown(*word, task);
  if (row != nullptr) set_program_location("%s: %s", printableLine(task.line).c_str(), row->summary);
  if (row == nullptr || row->run(task)) reportMissing(task.line, missing);
}

}  // namespace

std::vector<const ActionRow*> allRows() {
  std::vector<const ActionRow*> rows;
  for (const ActionWord& word : kActions) {
    for (const auto room : kRooms) {
      for (const ActionRow& row : room()) {
        if (word.action == row.action) rows.push_back(&row);
      }
    }
  }
  return rows;
}

const ActionRow* rowFor(const Task& task) {
  static const std::vector<const ActionRow*> rows = allRows();
  const auto found = std::find_if(rows.begin(), rows.end(), [&](const ActionRow* row) {
    return task.is("action", row->action) && row->takes(task);
  });
  return found == rows.end() ? nullptr : *found;
}

void executeTask(const char* line, ConfigFile& record) {
  const Task task{line, record};
  const char* action = task.action();
  if (*action == '\0') return reportNoAction(task);
  if (isDebug() >= 10) debug(10, "zvtaskq: command: %s", printableLine(line).c_str());
  if (placeIn(action, kSystemServices) || is_other_service(action)) {
    serviceAction(task);
  } else {
    tableAction(task);
  }
}

void executeCommand(const char* line) {
  ConfigFile record(nullptr);
  record.fillFromPost(line);
  executeTask(line, record);
}

void execute_mail_commmand(const char* line) {
  ConfigFile record(nullptr);
  record.fillFromPost(line);
  const Task task{line, record};
  if (*task.action() == '\0') {
    errorLogAndDebug(2000, "execute_mail_commmand:invalid action: %s", printableLine(line).c_str());
    if (isDebug() >= 2000) printContents(task);
    return;
  }
  if (isDebug() >= 2000) debug(2000, "zvtaskq: mail command: %s", printableLine(line).c_str());
  reportMissing(line, missingForMail(task));
}

}  // namespace zvtaskq
