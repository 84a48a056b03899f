// The entries of one folder.
#pragma once

#include <dirent.h>

#include <memory>

#include "core/sys/sys.h"

namespace zvtaskq {

/// Reads a folder under the identity of the moment, but for "." and "..", in no order.
class FolderReader {
 public:
  /// Opens the folder that the path leads to, links followed.
  explicit FolderReader(const char* path);
  /// Reads an open folder, by a descriptor of its own: where the caller's stands does not matter.
  explicit FolderReader(int folder);

  /// Whether the folder could be opened; errno says why not.
  explicit operator bool() const { return entries_ != nullptr; }
  /// The next entry, valid until the next call; null at the end and on an error (see `failed`).
  const dirent* next();
  /// Whether the entry itself is a folder, and no link to one.
  bool isFolder(const dirent& entry) const;
  /// Whether the entry itself is a regular file, and no link to one.
  bool isFile(const dirent& entry) const;
  /// Reading ended early, with errno.
  bool failed() const { return failed_; }
  /// The open folder, for work relative to it.
  int descriptor() const { return ::dirfd(entries_.get()); }

 private:
  explicit FolderReader(Descriptor folder);
  bool isOfKind(const dirent& entry, unsigned char type, mode_t kind) const;

  struct Close {
    void operator()(DIR* entries) const { ::closedir(entries); }
  };
  std::unique_ptr<DIR, Close> entries_;
  bool failed_ = false;
};

}  // namespace zvtaskq
