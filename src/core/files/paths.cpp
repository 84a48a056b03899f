#include "core/files/paths.h"

#include <sys/stat.h>

#include <cerrno>

#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

bool lookAt(const char* path, struct stat& what) {
  if (path == nullptr) {
    errno = ENOENT;
    return false;
  }
  return ::stat(path, &what) == 0;
}

bool lookAtItself(const char* path, struct stat& what) {
  return path != nullptr && sys::lstat(path, what) == 0;
}

}  // namespace

int pathExists(const char* path, PathKind kind) {
  struct stat what {};
  if (!lookAt(path, what)) return 0;
  if (kind == PathKind::file) return S_ISREG(what.st_mode) ? 1 : 0;
  if (kind == PathKind::folder) return S_ISDIR(what.st_mode) ? 1 : 0;
  return 1;
}

long long fileSize(const char* path) {
  struct stat what {};
  return lookAt(path, what) ? what.st_size : -1;
}

int unlinkFile(const char* path) {
  if (path == nullptr) {
    errno = ENOENT;
    return 0;
  }
  return sys::unlink(path) == 0 ? 1 : 0;
}

int isLink(const char* path) {
  struct stat what {};
  return lookAtItself(path, what) && S_ISLNK(what.st_mode) ? 1 : 0;
}

int isHardLink(const char* path) {
  struct stat what {};
  if (!lookAtItself(path, what) || !S_ISREG(what.st_mode) || what.st_nlink < 2) return 0;
  return static_cast<int>(what.st_nlink);
}

}  // namespace zvtaskq
