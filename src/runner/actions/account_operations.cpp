#include "runner/actions/account_operations.h"

namespace zvtaskq {

AccountOperations& accountOperations() {
  static AccountOperations operations;
  return operations;
}

}  // namespace zvtaskq
