// Where the watched services were last seen.
#pragma once

#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"

namespace zvtaskq {

/// Answers which services run, for one pass of the monitor. A service mostly is the process it was a minute ago, so
/// that one is asked first, by the id kept in the state folder; all processes are read, once, when one of the services
/// is not found so. The id is a hint: what counts is the name of the process that has it now.
class WatchedProcesses {
 public:
  WatchedProcesses();
  WatchedProcesses(const WatchedProcesses&) = delete;
  WatchedProcesses& operator=(const WatchedProcesses&) = delete;
  /// Keeps for the next pass where the services were found, if that is not what was known.
  ~WatchedProcesses();

  /// Whether a process of that name exists, of a name longer than 15 characters by those (see `keptOfName`). Runs as
  /// root and leaves nobody's identity.
  bool has(const char* service);
  /// The names of all processes, as they were when the first service was not where it was last seen.
  const ListFile& all();

 private:
  void readAll();

  PanelRecord known_;
  bool isChanged_ = false;
  bool isRead_ = false;
  ConfigFile processes_{nullptr};
  ListFile names_{nullptr};
};

}  // namespace zvtaskq
