// Several safe writes for the price of one.
#pragma once

#include <memory>
#include <vector>

#include "core/files/safe_file.h"

namespace zvtaskq {

/// Puts written files in place together: all are on their way to the disk before the first is waited for, and each
/// folder is flushed once. The promise of a safe write holds for each: it is the old file or the new, never half of
/// one; until `commit` it is the old one for whoever reads it. For files that nobody else writes meanwhile.
class WriteBatch {
 public:
  WriteBatch() = default;
  WriteBatch(const WriteBatch&) = delete;
  WriteBatch& operator=(const WriteBatch&) = delete;
  /// Commits what is left.
  ~WriteBatch() { static_cast<void>(commit()); }

  /// The folder of a file at `path`, when the file added last lies there too; otherwise null.
  std::shared_ptr<const Descriptor> folderOf(const char* path) const;
  /// Takes over a file that is written out and has its owner and mode. Commits when it holds many.
  void add(std::unique_ptr<SafeFile> file);
  /// Flushes the files and puts them in place, under the identity it finds. 0 when one of them, now or earlier, could
  /// not be: an error-log line names each, and the old file stays.
  [[nodiscard]] int commit();

 private:
  std::vector<std::unique_ptr<SafeFile>> files_;
  int whole_ = 1;
};

}  // namespace zvtaskq
