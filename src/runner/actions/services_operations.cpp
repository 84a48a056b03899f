#include "runner/actions/services_operations.h"

namespace zvtaskq {

ServiceOperations& serviceOperations() {
  static ServiceOperations operations;
  return operations;
}

}  // namespace zvtaskq
