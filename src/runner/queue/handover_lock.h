// The lock under which runs take queue files over, one at a time.
#pragma once

#include "core/sys/sys.h"

namespace zvtaskq {

/// Holds "/run/zvtaskq.queue.lock" while it lives. Only root can open the file, so nobody else can hold it, and the
/// system frees it when its holder dies. Taking waits up to ten seconds for another run.
class HandoverLock {
 public:
  HandoverLock();
  bool held() const { return file_.isOpen(); }

 private:
  Descriptor file_;
};

}  // namespace zvtaskq
