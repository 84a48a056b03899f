// The one seam to the operating system's files: thin wrappers that retry interrupted calls, close on exec, and
// carry the fail points. Each returns what the system call returns and leaves errno; none logs.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace zvtaskq {

/// Owns a file descriptor and closes it.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }
  explicit operator bool() const { return isOpen(); }
  [[nodiscard]] int release();
  void reset();
  /// Closes now and returns what `close` said (a network file system reports a full disk here); -1 when not open.
  [[nodiscard]] int close();

 private:
  int fd_ = -1;
};

namespace sys {

/// Always with O_CLOEXEC and O_NOCTTY.
int open(const char* path, int flags, mode_t mode = 0);
int openat(int directory, const char* path, int flags, mode_t mode = 0);
/// `openat` that neither crosses a symbolic link anywhere in `path` nor leaves `directory`. -1 with ENOSYS on kernels
/// that have no such call.
int openBeneath(int directory, const char* path, int flags, mode_t mode = 0);
ssize_t read(int fd, void* into, std::size_t room);
/// Replaces `text` by the rest of the file. 0 with errno; EFBIG when that is more than `most` bytes.
[[nodiscard]] int readAll(int fd, std::string& text, std::size_t most);
/// Writes all of `text`, however many calls it takes. Returns the bytes written, fewer than asked only on an error.
std::size_t writeAll(int fd, std::string_view text);
int fsync(int fd);
/// Flushes the whole file system that the descriptor's file is on: cheaper than many flushes one by one.
int syncfs(int fd);
int ftruncate(int fd, off_t length);
/// Sets when the open file was last changed.
int setModified(int fd, const timespec& when);
int fchmod(int fd, mode_t mode);
int fchown(int fd, uid_t user, gid_t group);
/// The mode of what `path` itself is, never of a link's target.
int chmodNoFollow(int directory, const char* path, mode_t mode);
/// The mode of the very file that a descriptor stands for, one opened with O_PATH included; a link has none.
int chmodPinned(int fd, mode_t mode);
/// The owner of what `path` itself is, never of a link's target.
int chownNoFollow(int directory, const char* path, uid_t user, gid_t group);
/// The owner of the very file that a descriptor stands for, one opened with O_PATH included.
int chownPinned(int fd, uid_t user, gid_t group);
int renameat(int fromDirectory, const char* from, int toDirectory, const char* to);
int rename(const char* from, const char* to);
int unlinkat(int directory, const char* path, int flags);
int unlink(const char* path);
/// A symbolic link of that name which leads to `target`; -1 with EEXIST when there is something of that name.
int symlinkat(const char* target, int directory, const char* name);
/// A second name for a file; -1 with EEXIST when there is something of that name.
int link(const char* file, const char* name);
int mkdirat(int directory, const char* path, mode_t mode);
int mkdir(const char* path, mode_t mode);
/// `flock` without waiting.
int flockNow(int fd, int operation);
/// A read lease: taken only when nobody has the file open for writing; -1 with EAGAIN when somebody has. See ReadLease.
int takeReadLease(int fd);
int dropLease(int fd);
/// Whether the lease taken on the descriptor is whole: nobody has tried to open the file for writing since.
bool holdsLease(int fd);
/// A descriptor that stands for this very process, not for another that gets its id later.
int openProcess(pid_t pid);
/// Sends a signal to the process of such a descriptor.
int signalProcess(int process, int signal);
/// What `path` itself is, never a link's target.
int lstat(const char* path, struct stat& out);
int lstatAt(int directory, const char* path, struct stat& out);
int fstat(int fd, struct stat& out);
/// Tells apart what is mounted, also where one file system is mounted twice. False when the system cannot say.
bool mountAt(int directory, const char* path, unsigned long long& mount);

}  // namespace sys

/// A read lease for as long as it lives. Who opens the file for writing meanwhile waits in the call until the lease is
/// gone, and the system sends SIGIO, then or when it likes: a process that takes leases ignores it, and asks.
class ReadLease {
 public:
  explicit ReadLease(int fd);
  ~ReadLease();
  ReadLease(const ReadLease&) = delete;
  ReadLease& operator=(const ReadLease&) = delete;

  bool granted() const { return error_ == 0; }
  /// Somebody has the file open for writing. Neither granted nor refused: the file system knows no leases.
  bool refused() const;
  /// Granted, and nobody has tried to open the file for writing since.
  bool isWhole() const { return granted() && sys::holdsLease(fd_); }

 private:
  int fd_;
  int error_;
};

/// The folder that a path leads into, "." when it names none, and the name there. Slashes at its end do not count.
struct PathParts {
  explicit PathParts(std::string_view path);
  std::string folder;
  std::string name;
};

/// Flushes an open folder, so that a rename or delete in it outlives a power cut. Failures of file systems that cannot
/// do it, and of folders that may not be read, are ignored.
void syncFolder(int folder);
/// The same for the folder that `path` stands in.
void syncParentFolder(const char* path);

/// True when both describe the same file.
inline bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace zvtaskq
