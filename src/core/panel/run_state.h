// What the whole process shares once it has started: the configuration, whether this is a demonstration, and what the
// parts of a run ask of each other.
#pragma once

namespace zvtaskq {

class Config;

/// The loaded configuration; null before the start-up hands it over. Not owned.
extern const Config* sys_conf;

/// Hands the configuration over to everything below, and switches on what it asks of the lower layers. Null takes
/// it back.
void useConfiguration(const Config* conf);

/// Whether this panel is a public demonstration, where nothing may be queued, stored or changed: the file
/// "conf/demo" stands in the panel's folder (`serverpath`). Looked up once, when the configuration is handed over.
bool isDemo();

struct RunFlags {
  /// The run is to work through the custom-build queue alone.
  bool customBuild = false;
  /// A queue file is being processed.
  int busy = 0;
  /// An action wants another pass over the queues soon.
  int checkqueue = 0;
  /// Another program wants the tracked job of this run (progress.h) to stop; cleared when a job begins and ends.
  bool halt = false;
  /// The terminal that the run was started from, for who looks on; -1 when there is none.
  int terminal = -1;
};
extern RunFlags runFlags;

}  // namespace zvtaskq
