// What other programs see of a long task, and where they leave instructions for it.
#pragma once

#include "core/sys/sys.h"

namespace zvtaskq {

class ConfigFile;

/// Tracks one long task while it lives, when `track_task_queue_processes` is on: a folder
/// "<admindir>/task_queue_processes/<pid>" that holds "process_info" (the task and its start), "level_tracker" (a line
/// each time the task gets on) and, above 1, "process_location". The folder is made anew, so that instructions left
/// for a process that had this id before are not taken for ours, and removed at the end.
///
/// A failure to set it up is logged ("set_task_queue_tracking: ...") and costs the tracking, never the task.
class TaskTracking {
 public:
  explicit TaskTracking(const ConfigFile& task);
  ~TaskTracking();
  TaskTracking(const TaskTracking&) = delete;
  TaskTracking& operator=(const TaskTracking&) = delete;
};

/// Begins tracking the task; 1 when it is tracked. Leaves nobody's identity.
int set_task_queue_tracking(const ConfigFile& task);
/// Asks the task that is tracked to stop (`runFlags.halt`), if it is a job of that kind: "backup", "restore" or
/// "tally". False when it is not.
bool haltJob(const char* kind);
/// Writes one line of progress: "<seconds since the epoch>: <text>".
[[gnu::format(printf, 1, 2)]] void track_process(const char* format, ...);
/// Ends it and removes the folder of this process.
void end_task_queue_tracking();

}  // namespace zvtaskq
