// The few process-wide values that the parts of a run share.
#pragma once

namespace zvtaskq {

struct RunFlags {
  /// A queue file is being processed.
  int busy = 0;
  /// An action wants another pass over the queues soon.
  int checkqueue = 0;
  /// The names of the system services, ended by null; set at start-up.
  const char* const* services = nullptr;
};

extern RunFlags runFlags;

}  // namespace zvtaskq
