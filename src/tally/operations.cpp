#include "tally/operations.h"

namespace zvtaskq {

TallyOperations& tallyOperations() {
  static TallyOperations operations;
  return operations;
}

}  // namespace zvtaskq
