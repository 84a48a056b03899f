#include "tally/disk/owned_files.h"

#include <cerrno>
#include <cstring>

#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

OwnedFiles::OwnedFiles(const char* path) {
  const AsRoot root;
  const auto visit = [&](const TreeEntry& entry) {
    if (S_ISREG(entry.what.st_mode) && entry.what.st_nlink == 1) bytes_[entry.what.st_uid] += entry.what.st_size;
    return 1;
  };
  if (walkTree(path, visit) || errno == ENOENT) return;
  errorLog("Unable to count the files of %s: %s", path, std::strerror(errno));
}

long long OwnedFiles::of(uid_t owner) const {
  const auto found = bytes_.find(owner);
  return found == bytes_.end() ? 0 : found->second;
}

}  // namespace zvtaskq
