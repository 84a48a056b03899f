#include "runner/queue/queue_file.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/files/lock_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "runner/queue/handover_lock.h"
#include "runner/queue/lost_lines.h"
#include "runner/queue/retired_queue.h"

namespace zvtaskq {

namespace {

/// How long a writer may keep the file open after it was taken over: milliseconds in all, and between two looks.
constexpr int kWriterPatience = 2000;
constexpr int kWriterPause = 2;

std::string movedName(const std::string& temporary, const struct stat& file) {
  return temporary + "." + std::to_string(file.st_ino);
}

bool isFileAt(const std::string& path, const struct stat& file) {
  struct stat now {};
  return sys::lstat(path.c_str(), now) == 0 && sameFile(now, file);
}

}  // namespace

QueueFile::QueueFile(const char* path) : path_(path == nullptr ? "" : path), temporary_(path_ + ".tmp") {}

QueueFile::Taken QueueFile::take() {
  const FailScope scope("queue");
  if (path_.empty()) return Taken::absent;
  const AsRoot root;
  revisitRetired(path_);
  struct stat what {};
  if (sys::lstat(path_.c_str(), what) != 0) return Taken::absent;
  if (moveAside()) return Taken::yes;
  errorLog("Error renaming Q file to tmp Q file: %s", std::strerror(errno));
  return Taken::failed;
}

/// The hand-over itself. 0 with errno.
bool QueueFile::moveAside() {
  const HandoverLock lock;
  if (!lock.held()) return false;
  if (!makeWay()) return false;
  struct stat queue {};
  if (sys::lstat(path_.c_str(), queue) != 0) return false;
  if (S_ISDIR(queue.st_mode)) {
    // A folder would move as willingly as a file, and could never be deleted again.
    errno = EISDIR;
    return false;
  }
  if (sys::rename(path_.c_str(), temporary_.c_str()) != 0) return false;
  if (!openTaken()) return true;
  // A writer may hold a lock of its own on the file for as long as it writes.
  const bool marked = sys::flockNow(file_.get(), LOCK_EX) == 0;
  waitForWriters();
  if (!marked) static_cast<void>(sys::flockNow(file_.get(), LOCK_EX));
  return true;
}

/// Opens what was taken over. A link, a FIFO, a device: nothing of it is read, it is kept aside as it is.
bool QueueFile::openTaken() {
  file_ = Descriptor(sys::open(temporary_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  readable_ = file_.isOpen() && sys::fstat(file_.get(), identity_) == 0 && S_ISREG(identity_.st_mode);
  if (!readable_) {
    static_cast<void>(sys::lstat(temporary_.c_str(), identity_));
    file_.reset();
    return false;
  }
  reader_ = std::make_unique<LineReader>(file_.get());
  return true;
}

/// Nobody can open the file any more under the name it had; this waits for those who have.
void QueueFile::waitForWriters() {
  for (int waited = 0; waited < kWriterPatience; waited += kWriterPause) {
    if (sys::takeReadLease(file_.get()) == 0) {
      static_cast<void>(sys::dropLease(file_.get()));
      return;
    }
    // Some network file systems know no leases: there the reading on before the delete has to do.
    if (errno != EAGAIN) return;
    sleepSafely(kWriterPause);
  }
}

/// Clears the temporary name. What a crash left there is kept aside; what another run still works on moves to a name
/// that this run can tell from the file itself.
bool QueueFile::makeWay() {
  struct stat leftover {};
  if (sys::lstat(temporary_.c_str(), leftover) != 0) return true;
  const Descriptor opened(sys::open(temporary_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  const bool busy = opened && sys::flockNow(opened.get(), LOCK_EX) != 0 && errno == EWOULDBLOCK;
  if (busy) return sys::rename(temporary_.c_str(), movedName(temporary_, leftover).c_str()) == 0;
  return keepAside(temporary_.c_str(), "left behind by a run that did not end") != 0;
}

int QueueFile::read(ListFile& lines) {
  const FailScope scope("queue");
  const AsRoot root;
  FileLock lock;
  readable_ = readable_ && lock.take(temporary_.c_str(), kLockMaximumAge, "ListFile::readFile", nullptr);
  if (readable_) {
    std::string_view line;
    while (reader_->next(line)) lines.addLine(line);
    readable_ = !reader_->failed();
  }
  lock.release();
  if (!readable_) errorLog("Error reading the tmp Q file");
  return readable_ ? 1 : 0;
}

bool QueueFile::hasMore() {
  struct stat now {};
  return readable_ && sys::fstat(file_.get(), now) == 0 && now.st_size > reader_->consumed() + reader_->unfinished();
}

/// The name the file has by now; null when it has none that this run knows.
std::string QueueFile::nameNow() const {
  if (isFileAt(temporary_, identity_)) return temporary_;
  const std::string moved = movedName(temporary_, identity_);
  return isFileAt(moved, identity_) ? moved : std::string();
}

void QueueFile::finish() {
  const FailScope scope("queue");
  const AsRoot root;
  const HandoverLock lock;
  const std::string name = nameNow();
  if (name.empty()) {
    errorLog("Error removing tmp Q file");
    return;
  }
  if (!readable_) {
    static_cast<void>(keepAside(name.c_str(), "could not be read"));
  } else if (reader_->unfinished() > 0) {
    static_cast<void>(
        keepAside(name.c_str(), "its last line is not finished and was not carried out, the others were"));
  } else if (!retireQueueFile(path_, name.c_str(), reader_->consumed()) && sys::unlink(name.c_str()) != 0) {
    errorLog("Error removing tmp Q file");
  }
}

}  // namespace zvtaskq
