#include "core/sys/sys.h"

#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "core/sys/fail_point.h"

namespace zvtaskq {

namespace {

constexpr int kAlways = O_CLOEXEC | O_NOCTTY;

template <class Call>
auto retried(Call call) {
  auto outcome = call();
  while (outcome < 0 && errno == EINTR) outcome = call();
  return outcome;
}

int chmodThrough(int fd, mode_t mode) {
  return ::chmod(("/proc/self/fd/" + std::to_string(fd)).c_str(), mode);
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.release();
  }
  return *this;
}

int Descriptor::release() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

void Descriptor::reset() {
  const int fd = release();
  if (fd >= 0) ::close(fd);
}

int Descriptor::close() {
  const int fd = release();
  if (fd < 0) return -1;
  const int outcome = ::close(fd);
  return failPoint("close") ? -1 : outcome;
}

namespace sys {

int open(const char* path, int flags, mode_t mode) {
  return sys::openat(AT_FDCWD, path, flags, mode);
}

int openat(int directory, const char* path, int flags, mode_t mode) {
  if (failPoint("open")) return -1;
  return retried([&] { return ::openat(directory, path, flags | kAlways, mode); });
}

int openBeneath(int directory, const char* path, int flags, mode_t mode) {
  if (failPoint("openat2")) return -1;
  open_how how{};
  // This call refuses what a mere pin has no use for.
  how.flags = static_cast<unsigned>(flags | ((flags & O_PATH) != 0 ? O_CLOEXEC : kAlways));
  if ((flags & O_CREAT) != 0) how.mode = mode;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  return static_cast<int>(retried([&] { return ::syscall(SYS_openat2, directory, path, &how, sizeof how); }));
}

ssize_t read(int fd, void* into, std::size_t room) {
  if (failPoint("read")) return -1;
  return retried([&] { return ::read(fd, into, room); });
}

int readAll(int fd, std::string& text, std::size_t most) {
  constexpr std::size_t block = 64UL << 10;
  text.clear();
  for (;;) {
    const std::size_t had = text.size();
    text.resize(had + block);
    const ssize_t got = read(fd, text.data() + had, block);
    text.resize(had + static_cast<std::size_t>(got > 0 ? got : 0));
    if (got <= 0) return got == 0 ? 1 : 0;
    if (text.size() <= most) continue;
    errno = EFBIG;
    return 0;
  }
}

std::size_t writeAll(int fd, std::string_view text) {
  const FailAction action = failAction("write");
  if (action == FailAction::error) return 0;
  const std::size_t wanted = action == FailAction::shortWrite ? text.size() / 2 : text.size();
  std::size_t done = 0;
  while (done < wanted) {
    const ssize_t wrote = retried([&] { return ::write(fd, text.data() + done, wanted - done); });
    if (wrote <= 0) break;
    done += static_cast<std::size_t>(wrote);
  }
  if (action == FailAction::shortWrite) errno = ENOSPC;
  return done;
}

int fsync(int fd) {
  if (failPoint("fsync")) return -1;
  return retried([&] { return ::fsync(fd); });
}

int syncfs(int fd) {
  if (failPoint("fsync")) return -1;
  return ::syncfs(fd);
}

int ftruncate(int fd, off_t length) {
  if (failPoint("ftruncate")) return -1;
  return retried([&] { return ::ftruncate(fd, length); });
}

int setModified(int fd, const timespec& when) {
  const timespec times[2] = {{0, UTIME_OMIT}, when};
  return ::futimens(fd, times);
}

int fchmod(int fd, mode_t mode) {
  if (failPoint("chmod")) return -1;
  return ::fchmod(fd, mode);
}

int fchown(int fd, uid_t user, gid_t group) {
  if (failPoint("chown")) return -1;
  return ::fchown(fd, user, group);
}

int chmodNoFollow(int directory, const char* path, mode_t mode) {
  if (failPoint("chmod")) return -1;
  // This kernel interface has no chmod that leaves links alone, so the file is pinned first and changed through
  // its descriptor.
  const Descriptor pinned(::openat(directory, path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat what {};
  if (!pinned || ::fstat(pinned.get(), &what) != 0) return -1;
  if (S_ISLNK(what.st_mode)) {
    errno = ELOOP;
    return -1;
  }
  return chmodThrough(pinned.get(), mode);
}

int chmodPinned(int fd, mode_t mode) {
  if (failPoint("chmod")) return -1;
  return chmodThrough(fd, mode);
}

int chownNoFollow(int directory, const char* path, uid_t user, gid_t group) {
  if (failPoint("chown")) return -1;
  return ::fchownat(directory, path, user, group, AT_SYMLINK_NOFOLLOW);
}

int chownPinned(int fd, uid_t user, gid_t group) {
  if (failPoint("chown")) return -1;
  return ::fchownat(fd, "", user, group, AT_EMPTY_PATH);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) {
  if (failPoint("rename")) return -1;
  return ::renameat(fromDirectory, from, toDirectory, to);
}

int rename(const char* from, const char* to) {
  return sys::renameat(AT_FDCWD, from, AT_FDCWD, to);
}

int unlinkat(int directory, const char* path, int flags) {
  if (failPoint("unlink")) return -1;
  return ::unlinkat(directory, path, flags);
}

int unlink(const char* path) {
  return sys::unlinkat(AT_FDCWD, path, 0);
}

int symlinkat(const char* target, int directory, const char* name) {
  if (failPoint("link")) return -1;
  return ::symlinkat(target, directory, name);
}

int link(const char* file, const char* name) {
  if (failPoint("link")) return -1;
  return ::link(file, name);
}

int mkdirat(int directory, const char* path, mode_t mode) {
  if (failPoint("mkdir")) return -1;
  return ::mkdirat(directory, path, mode);
}

int mkdir(const char* path, mode_t mode) {
  return sys::mkdirat(AT_FDCWD, path, mode);
}

int flockNow(int fd, int operation) {
  if (failPoint("flock")) return -1;
  return retried([&] { return ::flock(fd, operation | LOCK_NB); });
}

int takeReadLease(int fd) {
  if (failPoint("lease")) return -1;
  return ::fcntl(fd, F_SETLEASE, F_RDLCK);
}

int dropLease(int fd) {
  return ::fcntl(fd, F_SETLEASE, F_UNLCK);
}

bool holdsLease(int fd) {
  return ::fcntl(fd, F_GETLEASE) == F_RDLCK;
}

int openProcess(pid_t pid) {
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

int signalProcess(int process, int signal) {
  if (failPoint("signal")) return -1;
  return static_cast<int>(::syscall(SYS_pidfd_send_signal, process, signal, nullptr, 0));
}

int lstat(const char* path, struct stat& out) {
  return sys::lstatAt(AT_FDCWD, path, out);
}

int lstatAt(int directory, const char* path, struct stat& out) {
  return ::fstatat(directory, path, &out, AT_SYMLINK_NOFOLLOW);
}

int fstat(int fd, struct stat& out) {
  return ::fstat(fd, &out);
}

bool mountAt(int directory, const char* path, unsigned long long& mount) {
  struct statx what {};
  if (::statx(directory, path, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_MNT_ID, &what) != 0) return false;
  mount = what.stx_mnt_id;
  return (what.stx_mask & STATX_MNT_ID) != 0;
}

}  // namespace sys

ReadLease::ReadLease(int fd) : fd_(fd), error_(sys::takeReadLease(fd) == 0 ? 0 : errno) {}

ReadLease::~ReadLease() {
  if (granted()) static_cast<void>(sys::dropLease(fd_));
}

bool ReadLease::refused() const {
  return error_ == EAGAIN;
}

PathParts::PathParts(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  const std::size_t slash = path.rfind('/');
  name = path.substr(slash == std::string_view::npos ? 0 : slash + 1);
  folder = slash == std::string_view::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

void syncFolder(int folder) {
  if (sys::fsync(folder) == 0 || errno != EBADF) return;
  // Anew, as a descriptor that only pins the folder cannot be flushed.
  const Descriptor opened(sys::openat(folder, ".", O_RDONLY | O_DIRECTORY));
  if (opened) static_cast<void>(sys::fsync(opened.get()));
}

void syncParentFolder(const char* path) {
  const Descriptor folder(sys::open(PathParts(path).folder.c_str(), O_RDONLY | O_DIRECTORY));
  if (folder) static_cast<void>(sys::fsync(folder.get()));
}

}  // namespace zvtaskq
