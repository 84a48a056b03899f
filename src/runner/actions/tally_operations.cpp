#include "runner/actions/tally_operations.h"

namespace zvtaskq {

TallyOperations& tallyOperations() {
  static TallyOperations operations;
  return operations;
}

}  // namespace zvtaskq
