#include "core/files/private_folder.h"

#include <unistd.h>

#include <cerrno>

namespace zvtaskq {

Descriptor openPrivateFolder(const char* path, mode_t mode) {
  return openPrivateFolderAt(AT_FDCWD, path, mode);
}

Descriptor openPrivateFolderAt(int parent, const char* name, mode_t mode) {
  if (sys::mkdirat(parent, name, mode) != 0 && errno != EEXIST) return {};
  Descriptor folder(sys::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  if (!folder) return {};
  struct stat what {};
  if (sys::fstat(folder.get(), what) != 0) return {};
  if (what.st_uid != ::geteuid()) {
    errno = EPERM;
    return {};
  }
  if (sys::fchmod(folder.get(), mode) != 0) return {};
  return folder;
}

}  // namespace zvtaskq
