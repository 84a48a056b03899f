// Lock files: the lock on a file is "<path>.lock", made by exclusive create. Other programs of the panel keep to the
// same protocol.
#pragma once

#include <cstddef>
#include <string>

#include "core/sys/sys.h"

namespace zvtaskq {

/// Seconds after which a lock on a data file counts as left behind.
inline constexpr int kLockMaximumAge = 60;
/// The size of the buffer that a reason is written into.
inline constexpr std::size_t kLockReasonSize = 512;

/// Writes the caller's name into every lock file made from now on.
void setLockDebug(bool on);

/// Takes the lock on `path`, waiting about two seconds for another holder and breaking a lock older than
/// `maximumAge` seconds. `caller` (null for none) names the operation. 1 when the lock is held; 0 with the reason
/// ("empty file_name", "short file_name", "file is locked by another process", or "open error for ...") in `reason`,
/// a buffer of kLockReasonSize bytes or null. Runs under the identity it finds.
[[nodiscard]] int getLock(const char* path, int maximumAge, const char* caller, char* reason);
/// The short form, with the maximum age of a data file's lock and no reason.
[[nodiscard]] int getLock(const char* path, const char* caller);
/// Deletes "<path>.lock", whether or not this process made it.
void freeLock(const char* path);

/// Holds a lock and frees it, but only while the lock file still is the one that was made: a holder so slow that
/// its lock was broken must not delete its successor's.
class FileLock {
 public:
  FileLock() = default;
  ~FileLock() { release(); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  /// As `getLock`.
  [[nodiscard]] int take(const char* path, int maximumAge, const char* caller, char* reason);
  /// As `take`, for a lock that ends with its holder, however that dies: the lock file is a second name of `own`, a
  /// file in a folder that only the identity of the moment can write to (made when it is missing), which is kept under
  /// a `flock`. A lock of that file without one is removed at once; of those of other programs, which make theirs by
  /// another file, only the age tells.
  [[nodiscard]] int takeForLife(const char* path, const char* own, int maximumAge, const char* caller, char* reason);
  bool held() const { return file_.isOpen(); }
  void release();

 private:
  int keep(Descriptor file, const char* path);

  std::string name_;
  Descriptor folder_;
  /// Open as long as the lock is held: a file that is gone would leave its number to its successor.
  Descriptor file_;
};

}  // namespace zvtaskq
