#include "runner/actions/backup_operations.h"

namespace zvtaskq {

BackupOperations& backupOperations() {
  static BackupOperations operations;
  return operations;
}

}  // namespace zvtaskq
