#include "core/files/append_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "core/files/lock_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

/// Whether the file ends in the middle of a line, left there by a writer that died: what is appended must not
/// become a part of it.
bool endsInsideLine(int fd, off_t size) {
  char last = '\n';
  return size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

/// Appends with one write. A write that falls short is taken back.
bool appendWhole(int fd, std::string_view lines) {
  std::string text(lines);
  struct stat before {};
  if (sys::fstat(fd, before) != 0) return false;
  if (!S_ISREG(before.st_mode) || before.st_nlink > 1) {
    errno = EINVAL;
    return false;
  }
  if (endsInsideLine(fd, before.st_size)) text.insert(0, 1, '\n');
  if (sys::writeAll(fd, text) == text.size()) return true;
  const int error = errno;
  static_cast<void>(sys::ftruncate(fd, before.st_size));
  errno = error;
  return false;
}

}  // namespace

Appended appendLines(const char* path, std::string_view lines, const char* caller, const struct stat* like) {
  FileLock lock;
  if (!lock.take(path, kLockMaximumAge, caller, nullptr)) return Appended::locked;
  const Descriptor file(sys::open(path, O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW, 0600));
  if (!file || !appendWhole(file.get(), lines)) {
    const int error = errno;
    errorLog("Unable to append to %s: %s", path, std::strerror(error));
    errno = error;
    return Appended::failed;
  }
  const Ids owner = like == nullptr ? Ids{getUID(kPanelUser), getGID(kPanelUser, 0)} : Ids{like->st_uid, like->st_gid};
  const mode_t mode = like == nullptr ? 0600 : like->st_mode & 0777;
  struct stat now {};
  const bool isRight = sys::fstat(file.get(), now) == 0 && (now.st_mode & 07777) == mode && now.st_uid == owner.user &&
                       now.st_gid == owner.group;
  if (isRight) return Appended::done;
  if (sys::fchmod(file.get(), mode) != 0 || sys::fchown(file.get(), owner.user, owner.group) != 0) {
    errorLog("Unable to give %s to uid %u: %s", path, owner.user, std::strerror(errno));
  }
  return Appended::done;
}

}  // namespace zvtaskq
