#include "core/panel/progress.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "core/config/config.h"
#include "core/files/private_folder.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"

namespace zvtaskq {

namespace {

constexpr int kTrackLocations = 2;

/// The open files of the task being tracked.
struct Tracker {
  std::string folder;
  Descriptor progress;
  Descriptor locations;
};
Tracker tracker;
/// The action word of the task that is tracked, or would be if the administrator wanted it.
std::string job;

int reportFailure(const char* format, const char* path) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  errorLogAndDebug(100, format, path, std::strerror(errno));
#pragma GCC diagnostic pop
  return 0;
}

/// Deletes the plain files of a folder, and the folder.
void removeFolder(const std::string& path) {
  const Descriptor folder(sys::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  if (!folder) return;
  FolderReader entries(folder.get());
  while (const dirent* entry = entries.next()) static_cast<void>(sys::unlinkat(folder.get(), entry->d_name, 0));
  static_cast<void>(sys::unlinkat(AT_FDCWD, path.c_str(), AT_REMOVEDIR));
}

int makeFolders() {
  const std::string parent = adminFile("task_queue_processes");
  if (!openPrivateFolder(parent.c_str(), 0700)) {
    return reportFailure("set_task_queue_tracking: unable to create directory (%s): %s", parent.c_str());
  }
  tracker.folder = parent + "/" + std::to_string(::getpid());
  removeFolder(tracker.folder);
  if (!openPrivateFolder(tracker.folder.c_str(), 0700)) {
    return reportFailure("set_task_queue_tracking: unable to create directory (%s): %s", tracker.folder.c_str());
  }
  return 1;
}

int writeProcessInfo(const ConfigFile& task) {
  const std::string path = tracker.folder + "/process_info";
  PanelRecord info(path);
  info.fill(&task);
  // Whoever may look at the progress of a job has no business with its password.
  hidePasswords(info);
  info.setParam("start", static_cast<long long>(std::time(nullptr)));
  if (info.writeFile()) return 1;
  errorLogAndDebug(100, "Unable to write %s: %s", path.c_str(), info.result.orEmpty());
  return 0;
}

Descriptor openTrackerFile(const char* name) {
  const std::string path = tracker.folder + "/" + name;
  Descriptor file(sys::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND, 0600));
  if (!file) static_cast<void>(reportFailure("set_task_queue_tracking: Error opening %s: %s", path.c_str()));
  return file;
}

}  // namespace

int set_task_queue_tracking(const ConfigFile& task) {
  runFlags.halt = false;
  const char* action = task.getValue("action");
  job = action == nullptr ? "" : action;
  const int wanted = sys_conf->track_task_queue_processes;
  if (wanted == 0) return 0;
  {
    const AsUser panel(kPanelUser);
    if (!makeFolders()) {
      tracker = Tracker();
      return 0;
    }
  }
  if (!writeProcessInfo(task)) {
    end_task_queue_tracking();
    return 0;
  }
  const AsUser panel(kPanelUser);
  tracker.progress = openTrackerFile("level_tracker");
  if (wanted >= kTrackLocations) tracker.locations = openTrackerFile("process_location");
  setLocationTracker(tracker.locations.get());
  return 1;
}

void track_process(const char* format, ...) {
  if (!tracker.progress) return;
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  const std::string line = joined(std::to_string(std::time(nullptr)), ": ", printable(text), "\n");
  static_cast<void>(sys::writeAll(tracker.progress.get(), line));
}

bool haltJob(const char* kind) {
  // There are tallies of several kinds.
  runFlags.halt = runFlags.halt || (*kind != '\0' && job.ends_with(kind));
  return runFlags.halt;
}

void end_task_queue_tracking() {
  runFlags.halt = false;
  job.clear();
  setLocationTracker(-1);
  const std::string folder = tracker.folder;
  tracker = Tracker();
  if (folder.empty()) return;
  const AsUser panel(kPanelUser);
  removeFolder(folder);
}

TaskTracking::TaskTracking(const ConfigFile& task) {
  static_cast<void>(set_task_queue_tracking(task));
}

TaskTracking::~TaskTracking() {
  end_task_queue_tracking();
}

}  // namespace zvtaskq
