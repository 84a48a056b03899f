#include "backup/operations.h"

namespace zvtaskq {

BackupOperations& backupOperations() {
  static BackupOperations operations;
  return operations;
}

}  // namespace zvtaskq
