// Services that do not start, and how long they are let be.
#pragma once

#include "core/record/panel_file.h"

namespace zvtaskq {

/// For one pass of the monitor: by `service_backoff`, a service that has failed to start so many times in a row is
/// tried after 1, 2, 4, … minutes, an hour at most; 0 tries every minute, and keeps nothing. What is kept, in the state
/// folder, is of the services that were missed in this pass alone: one that runs, or is watched no more, begins anew.
class StartBackoff {
 public:
  StartBackoff();
  StartBackoff(const StartBackoff&) = delete;
  StartBackoff& operator=(const StartBackoff&) = delete;
  ~StartBackoff();

  /// Whether a service that is missed is still to be let be.
  bool waits(const char* service);
  /// It was tried in vain.
  void failed(const char* service);

 private:
  bool isOn() const;

  PanelRecord known_;
  ConfigFile missed_{nullptr};
};

}  // namespace zvtaskq
