#include "notify/operations.h"

namespace zvtaskq {

NotifyOperations& notifyOperations() {
  static NotifyOperations operations;
  return operations;
}

}  // namespace zvtaskq
