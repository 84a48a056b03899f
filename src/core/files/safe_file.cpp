#include "core/files/safe_file.h"

#include <unistd.h>

#include <cerrno>

#include "core/sys/fail_point.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kBuffer = std::size_t{64} * 1024;
constexpr int kCareful = O_RDONLY | O_NONBLOCK;

bool isLinkOfRoot(const char* path) {
  struct stat link {};
  return sys::lstat(path, link) == 0 && S_ISLNK(link.st_mode) && link.st_uid == 0;
}

}  // namespace

Descriptor openRegularFile(const char* path) {
  Descriptor file(sys::open(path, kCareful | O_NOFOLLOW));
  if (!file && errno == ELOOP && isLinkOfRoot(path)) file = Descriptor(sys::open(path, kCareful));
  if (!file) return {};
  struct stat what {};
  if (sys::fstat(file.get(), what) == 0 && S_ISREG(what.st_mode)) return file;
  file.reset();
  errno = EINVAL;
  return file;
}

Descriptor openRotated(const char* path, const LogMark& mark) {
  Descriptor rotated = openRegularFile(joined(path, ".1").c_str());
  return rotated && mark.fits(rotated.get()) ? std::move(rotated) : Descriptor();
}

SafeFile::SafeFile(const char* path) : path_(path), temporary_(joined(path, ".temp")) {}

int SafeFile::open() {
  const FailScope scope("safe_write");
  if (sys::unlink(temporary_.c_str()) != 0 && errno != ENOENT) return 0;
  file_ = Descriptor(sys::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
  if (!file_ || sys::fchmod(file_.get(), 0600) != 0) return 0;
  buffer_.reserve(kBuffer);
  return 1;
}

void SafeFile::writeThrough(std::string_view text) {
  if (error_ != 0) return;
  const FailScope scope("safe_write");
  const std::size_t wrote = sys::writeAll(file_.get(), text);
  written_ += static_cast<long long>(wrote);
  if (wrote < text.size()) error_ = errno;
}

void SafeFile::drain() {
  if (buffer_.empty()) return;
  writeThrough(buffer_);
  buffer_.clear();
}

int SafeFile::finish() {
  drain();
  const FailScope scope("safe_write");
  if (error_ == 0 && sys::fsync(file_.get()) != 0) error_ = errno;
  errno = error_;
  return error_ == 0 ? 1 : 0;
}

long long SafeFile::sizeOnDisk() const {
  struct stat what {};
  if (failPoint("safe_write.stat") || sys::fstat(file_.get(), what) != 0) return -1;
  return what.st_size;
}

int SafeFile::putInPlace() {
  const FailScope scope("safe_write");
  // A close can report what a write could not; the file itself stays at hand for its owner and mode.
  Descriptor again(::dup(file_.get()));
  if (!again || again.close() != 0) return 0;
  if (sys::rename(temporary_.c_str(), path_.c_str()) != 0) return 0;
  syncParentFolder(path_.c_str());
  return 1;
}

}  // namespace zvtaskq
