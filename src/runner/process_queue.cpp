#include "runner/process_queue.h"

#include <exception>
#include <string_view>

#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/text/line_search.h"
#include "runner/actions/action_table.h"
#include "runner/monitor/services_table.h"
#include "runner/queue/queue_file.h"

namespace zvtaskq {

namespace {

/// Carries out one line. Whatever goes wrong in it stays in it.
template <class CarryOut>
void guarded(const char* line, CarryOut carryOut) {
  atSafePoint();
  try {
    carryOut();
  } catch (const std::exception& error) {
    errorLog("%s: %s", printableLine(line).c_str(), error.what());
  } catch (...) {
    errorLog("%s: unknown exception", printableLine(line).c_str());
  }
  setNoPriv();
}

/// Most lines cannot hold a reset, however they are encoded, and need not be parsed to know it.
bool mayBeReset(std::string_view line) {
  for (const std::string_view sign : {"reset", "%6", "%7"}) {
    if (findText(line, sign) != std::string_view::npos) return true;
  }
  return false;
}

/// The place of the last line that resets everything, or -1.
int lastResetAll(const ListFile& lines) {
  int last = -1;
  ConfigFile record(nullptr);
  for (int i = 0; i < lines.size(); ++i) {
    const char* line = lines.getElementAt(i);
    if (!mayBeReset(line)) continue;
    record.empty();
    record.fillFromPost(line);
    if (record.isValue("action", "reset") && record.isValue("value", "all")) last = i;
  }
  return last;
}

void deleteFirstEqual(ListFile& lines, int place) {
  const std::string_view text = lines.getElementAt(place);
  int first = 0;
  while (text != lines.getElementAt(first)) ++first;
  lines.deleteElementAt(first);
  lines.remove_null_entries();
}

void resetAllFirst(ListFile& lines) {
  const int place = lastResetAll(lines);
  if (place < 0) return;
  systemLog("Reset all command Received");
  const char* line = lines.getElementAt(place);
  guarded(line, [&] { executeCommand(line); });
  deleteFirstEqual(lines, place);
  systemLog("Reset all command : done");
}

void carryOutTasks(ListFile& lines) {
  resetAllFirst(lines);
  PendingServices pending;
  ConfigFile record(nullptr);
  for (int i = 0; i < lines.size(); ++i) {
    const char* line = lines.getElementAt(i);
    record.empty();
    record.fillFromPost(line);
    if (placeIn(record.getValue("action"), kSystemServices)) {
      setHardest(pending, record);
    } else {
      guarded(line, [&] { executeTask(line, record); });
    }
  }
  for (auto& service : pending) {
    ConfigFile& task = service.second;
    const Text line = task.createPostString(1);
    guarded(line, [&] { executeTask(line, task); });
  }
}

void carryOutMail(const ListFile& lines) {
  for (int i = 0; i < lines.size(); ++i) {
    const char* line = lines.getElementAt(i);
    guarded(line, [&] { execute_mail_commmand(line); });
  }
}

}  // namespace

void processQueue(const char* path, int mailMode) {
  runFlags.busy = 1;
  runFlags.checkqueue = 0;
  QueueFile queue(path);
  const QueueFile::Taken taken = queue.take();
  if (taken == QueueFile::Taken::absent) return;
  if (taken == QueueFile::Taken::failed) {
    runFlags.checkqueue = 0;
    runFlags.busy = 0;
    return;
  }
  // A writer that was too slow for the first reading is heard before the file goes.
  do {
    ListFile lines(nullptr);
    lines.keepOrder = true;
    if (!queue.read(lines)) break;
    if (mailMode) {
      carryOutMail(lines);
    } else {
      carryOutTasks(lines);
    }
  } while (queue.hasMore());
  queue.finish();
  runFlags.busy = 0;
}

void process_mail_queue(const char* path) {
  processQueue(path, 1);
}

}  // namespace zvtaskq
