#include "core/panel/task.h"

#include <string>

#include "core/panel/task_queue.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/text/text.h"

namespace zvtaskq {

void selectedOf(const Task& task, ListFile& selected) {
  selected.keepOrder = true;
  for (int i = 0;; ++i) {
    const char* name = task.getOrNull(joined("select", std::to_string(i)).c_str());
    if (name == nullptr) return;
    selected.addElement(name);
  }
}

void queueTask(const char* action, const char* value, const char* type) {
  if (pushOnTaskQueue(action, value, type)) return;
  errorLog("Unable to queue action=%s&value=%s: %s", action, value, getSysResult());
}

}  // namespace zvtaskq
