#include "core/files/safe_file.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "core/sys/fail_point.h"

namespace zvtaskq {

namespace {

constexpr int kCareful = O_RDONLY | O_NONBLOCK;

constexpr int kMostLinks = 40;

/// Where a link of root's leads. It is pinned first, so that it is the one that was looked at which is followed. False,
/// with errno, when it is no link, or somebody else's.
bool readLinkOfRoot(int folder, const char* name, std::string& target) {
  const Descriptor link(sys::openat(folder, name, O_PATH | O_NOFOLLOW));
  struct stat what {};
  char text[PATH_MAX];
  if (!link || sys::fstat(link.get(), what) != 0) return false;
  errno = ELOOP;
  if (!S_ISLNK(what.st_mode) || what.st_uid != 0) return false;
  const ssize_t length = ::readlinkat(link.get(), "", text, sizeof text);
  if (length > 0) target.assign(text, static_cast<std::size_t>(length));
  return length > 0;
}

/// Opens what `path` leads to over links of root's alone.
Descriptor openOverLinksOfRoot(const char* path) {
  Descriptor folder;
  std::string next = path;
  for (int links = 0; links < kMostLinks; ++links) {
    const PathParts parts(next);
    Descriptor inner(sys::openat(folder ? folder.get() : AT_FDCWD, parts.folder.c_str(), O_PATH | O_DIRECTORY));
    if (!inner) return {};
    folder = std::move(inner);
    Descriptor file(sys::openat(folder.get(), parts.name.c_str(), kCareful | O_NOFOLLOW));
    if (file || errno != ELOOP || !readLinkOfRoot(folder.get(), parts.name.c_str(), next)) return file;
  }
  return {};
}

}  // namespace

Descriptor openRegularFile(const char* path) {
  struct stat what {};
  return openRegularFile(path, what);
}

Descriptor openRegularFile(const char* path, struct stat& what) {
  Descriptor file(sys::open(path, kCareful | O_NOFOLLOW));
  if (!file && errno == ELOOP) file = openOverLinksOfRoot(path);
  if (!file) return {};
  if (sys::fstat(file.get(), what) == 0 && S_ISREG(what.st_mode)) return file;
  file.reset();
  errno = EINVAL;
  return file;
}

Descriptor openRotated(const char* path, const LogMark& mark) {
  Descriptor rotated = openRegularFile(joined(path, ".1").c_str());
  return rotated && mark.fits(rotated.get()) ? std::move(rotated) : Descriptor();
}

SafeFile::SafeFile(const char* path, std::shared_ptr<const Descriptor> folder)
    : place_(path),
      temporary_(joined(path, ".temp")),
      temporaryName_(place_.name + ".temp"),
      folder_(std::move(folder)),
      buffer_(new char[kBuffer]) {}

int SafeFile::open() {
  const FailScope scope("safe_write");
  if (folder_ == nullptr) {
    Descriptor folder(sys::open(place_.folder.c_str(), O_RDONLY | O_DIRECTORY));
    // One that may not be listed can be written in all the same.
    if (!folder) folder = Descriptor(sys::open(place_.folder.c_str(), O_PATH | O_DIRECTORY));
    if (!folder) return 0;
    folder_ = std::make_shared<const Descriptor>(std::move(folder));
  }
  const auto make = [&] {
    constexpr int anew = O_WRONLY | O_CREAT | O_EXCL;
    file_ = Descriptor(sys::openat(folder_->get(), temporaryName_.c_str(), anew, kModeAlone));
  };
  make();
  if (file_ || errno != EEXIST) return file_ ? 1 : 0;
  if (sys::unlinkat(folder_->get(), temporaryName_.c_str(), 0) != 0 && errno != ENOENT) return 0;
  make();
  return file_ ? 1 : 0;
}

void SafeFile::writeThrough(std::string_view text) {
  if (error_ != 0) return;
  const FailScope scope("safe_write");
  const std::size_t wrote = sys::writeAll(file_.get(), text);
  written_ += static_cast<long long>(wrote);
  if (wrote < text.size()) error_ = errno;
}

void SafeFile::drain() {
  if (used_ == 0) return;
  writeThrough({buffer_.get(), used_});
  used_ = 0;
}

int SafeFile::writeOut() {
  drain();
  buffer_.reset();
  errno = error_;
  return error_ == 0 ? 1 : 0;
}

void SafeFile::startFlush() const {
  static_cast<void>(::sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE));
}

int SafeFile::flush() {
  const FailScope scope("safe_write");
  if (sys::fsync(file_.get()) != 0) error_ = errno;
  errno = error_;
  return error_ == 0 ? 1 : 0;
}

long long SafeFile::sizeOnDisk() const {
  struct stat what {};
  if (failPoint("safe_write.stat") || sys::fstat(file_.get(), what) != 0) return -1;
  return what.st_size;
}

int SafeFile::putInPlace() {
  if (!rename()) return 0;
  flushFolder();
  return 1;
}

int SafeFile::rename() {
  const FailScope scope("safe_write");
  // A close can report what a write could not.
  if (file_.close() != 0) return 0;
  if (sys::renameat(folder_->get(), temporaryName_.c_str(), folder_->get(), place_.name.c_str()) != 0) return 0;
  return 1;
}

void SafeFile::flushFolder() const {
  const FailScope scope("safe_write");
  syncFolder(folder_->get());
}

}  // namespace zvtaskq
