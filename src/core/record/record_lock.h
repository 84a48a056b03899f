// Reading a record or list, changing it and writing it back as one step.
#pragma once

#include "core/files/lock_file.h"
#include "core/record/data_file.h"

namespace zvtaskq {

/// Holds the lock on a record's or list's file from before it is read until after it is written, so that nothing
/// another program adds in between is lost. When the lock cannot be had, the record's own read tries again, and says
/// why it failed. Leaves the process at nobody.
class RecordLock {
 public:
  explicit RecordLock(DataFile& record) : record_(record), held_(record.useLock && record.takeLock(lock_) != 0) {
    if (held_) record_.useLock = false;
  }
  ~RecordLock() {
    if (!held_) return;
    record_.useLock = true;
    record_.releaseLock(lock_);
  }
  RecordLock(const RecordLock&) = delete;
  RecordLock& operator=(const RecordLock&) = delete;

 private:
  DataFile& record_;
  FileLock lock_;
  bool held_;
};

}  // namespace zvtaskq
