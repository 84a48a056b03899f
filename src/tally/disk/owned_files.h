// What each owner has among the files of one folder.
#pragma once

#include <sys/types.h>

#include <unordered_map>

namespace zvtaskq {

/// Looks once through a folder that many accounts share. Works as root, and gives back the identity it finds.
class OwnedFiles {
 public:
  explicit OwnedFiles(const char* path);
  /// The bytes of the owner's files, 0 for none.
  long long of(uid_t owner) const;

 private:
  std::unordered_map<uid_t, long long> bytes_;
};

}  // namespace zvtaskq
