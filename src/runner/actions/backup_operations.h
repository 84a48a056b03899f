// What backup and restore do for queue lines. A build that holds the work provides it.
//
// Each returns 1 on success and appends what happened, line by line, to `report`.
#pragma once

#include "core/sys/operation.h"
#include "core/text/text.h"

namespace zvtaskq {

class ConfigFile;

/// Who asked for a job, what the queue line says of it, and what came of it.
struct BackupJob {
  /// The record of the owner or, for a single user's backup, of the user.
  ConfigFile* owner = nullptr;
  /// The queue line: selections, password, schedule.
  ConfigFile* task = nullptr;
  /// Collected result lines.
  Text report;
  /// Whether the job's own rule says that a message is due.
  bool messageDue = false;
};

struct BackupOperations {
  Operation<BackupJob*> backupUser{"a user's backup"};
  Operation<BackupJob*> backupForReseller{"a reseller's backup"};
  Operation<BackupJob*> backupForAdmin{"an administrator's backup"};
  Operation<BackupJob*> backupSite{"a site backup"};
  Operation<> backupSystem{"the system backup"};
  Operation<BackupJob*> restoreForReseller{"a reseller's restore"};
  Operation<BackupJob*> restoreForAdmin{"an administrator's restore"};
  /// Old schedules in the crontab become records.
  Operation<> convertCronBackups{"the conversion of backup schedules"};
  /// Running backups are to stop.
  Operation<> haltBackups{"the halt of running backups"};
};

/// The operations this build holds.
BackupOperations& backupOperations();

}  // namespace zvtaskq
