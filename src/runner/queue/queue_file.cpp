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
/// What is carried out at once of a queue that is longer than any should be.
constexpr long long kMostBytes = 32LL << 20;
constexpr int kMostLines = 500'000;
constexpr int kCareful = O_RDONLY | O_NOFOLLOW | O_NONBLOCK;

}  // namespace

QueueFile::QueueFile(const char* path) : place_(path == nullptr ? "" : path) {}

QueueFile::Taken QueueFile::take() {
  const FailScope scope("queue");
  if (place_.path().empty()) return Taken::absent;
  const AsRoot root;
  const bool open = place_.open() != 0;
  if (!open && (errno == ENOENT || errno == ENOTDIR)) return Taken::absent;
  if (open) {
    revisitRetired(place_);
    struct stat what {};
    if (sys::lstatAt(place_.folder(), place_.name().c_str(), what) != 0) return Taken::absent;
    if (moveAside()) return Taken::yes;
  }
  errorLog("Error renaming Q file to tmp Q file: %s", std::strerror(errno));
  return Taken::failed;
}

/// The hand-over itself. 0 with errno.
bool QueueFile::moveAside() {
  const HandoverLock lock;
  if (!lock.held()) return false;
  if (!makeWay()) return false;
  struct stat queue {};
  if (sys::lstatAt(place_.folder(), place_.name().c_str(), queue) != 0) return false;
  if (S_ISDIR(queue.st_mode)) {
    // A folder would move as willingly as a file, and could never be deleted again.
    errno = EISDIR;
    return false;
  }
  const char* to = place_.temporary().c_str();
  if (sys::renameat(place_.folder(), place_.name().c_str(), place_.folder(), to) != 0) return false;
  if (!openTaken()) return true;
  // A writer may hold a lock of its own on the file for as long as it writes.
  const bool marked = sys::flockNow(file_.get(), LOCK_EX) == 0;
  waitForWriters();
  if (!marked) static_cast<void>(sys::flockNow(file_.get(), LOCK_EX));
  return true;
}

/// Opens what was taken over. A link, a FIFO, a device: nothing of it is read, it is kept aside as it is.
bool QueueFile::openTaken() {
  const char* name = place_.temporary().c_str();
  file_ = Descriptor(sys::openat(place_.folder(), name, kCareful));
  readable_ = file_.isOpen() && sys::fstat(file_.get(), identity_) == 0 && S_ISREG(identity_.st_mode);
  if (!readable_) {
    static_cast<void>(sys::lstatAt(place_.folder(), name, identity_));
    file_.reset();
    return false;
  }
  reader_ = std::make_unique<LineReader>(file_.get(), kLongestTask);
  return true;
}

/// Nobody can open the file any more under the name it had; this waits for those who have.
void QueueFile::waitForWriters() {
  for (int waited = 0; waited < kWriterPatience; waited += kWriterPause) {
    // Some network file systems know no leases: there the reading on before the delete has to do.
    if (!ReadLease(file_.get()).refused()) return;
    sleepSafely(kWriterPause);
  }
}

StandingFile QueueFile::standing(const std::string& name) const {
  return {place_.folder(), name, place_.pathOf(name)};
}

/// Clears the temporary name. What a crash left there is kept aside; what another run still works on moves to where
/// that run finds it again.
bool QueueFile::makeWay() {
  struct stat leftover {};
  const StandingFile file = standing(place_.temporary());
  if (sys::lstatAt(file.folder, file.name.c_str(), leftover) != 0) return true;
  const Descriptor opened(sys::openat(file.folder, file.name.c_str(), kCareful));
  const bool busy = opened && sys::flockNow(opened.get(), LOCK_EX) != 0 && errno == EWOULDBLOCK &&
                    sys::fstat(opened.get(), leftover) == 0;
  if (busy) return overtake(place_, file, leftover) != 0;
  return keepAside(place_, file, "left behind by a run that did not end") != 0;
}

int QueueFile::read(ListFile& lines) {
  const FailScope scope("queue");
  const AsRoot root;
  if (reader_) done_ = reader_->consumed();
  FileLock lock;
  const std::string path = place_.pathOf(place_.temporary());
  readable_ = readable_ && lock.take(path.c_str(), kLockMaximumAge, "ListFile::readFile", nullptr);
  if (readable_) {
    const long long end = done_ + kMostBytes;
    std::string_view line;
    do {
      cutShort_ = reader_->consumed() >= end || lines.size() >= kMostLines;
      if (cutShort_ || !reader_->next(line)) break;
      lines.addLine(line);
    } while (true);
    error_ = errno;
    readable_ = cutShort_ || !reader_->failed();
  }
  lock.release();
  if (!readable_) errorLog("Error reading the tmp Q file");
  return readable_ ? 1 : 0;
}

bool QueueFile::hasMore() {
  struct stat now {};
  if (!readable_ || cutShort_) return readable_;
  return sys::fstat(file_.get(), now) == 0 && now.st_size > reader_->consumed() + reader_->unfinished();
}

/// Where the file stands by now; without a name when it is nowhere that this run knows.
StandingFile QueueFile::standsNow() {
  struct stat now {};
  StandingFile file = standing(place_.temporary());
  if (sys::lstatAt(file.folder, file.name.c_str(), now) == 0 && sameFile(now, identity_)) return file;
  retired_ = openRetired(place_, false);
  const std::string name = overtakenName(identity_);
  if (!retired_ || sys::lstatAt(retired_.get(), name.c_str(), now) != 0 || !sameFile(now, identity_)) return {};
  return {retired_.get(), name, joined(place_.pathOf(place_.retiredFolder()), "/", name)};
}

std::string QueueFile::whyUnread() const {
  const std::string from = done_ == 0 ? std::string() : joined(" from byte ", std::to_string(done_), " on");
  const std::string why = error_ == EFBIG
                              ? joined(": a line of it is longer than ", std::to_string(kLongestTask), " bytes")
                              : std::string();
  return joined("could not be read", from, why, done_ == 0 ? "" : ", the lines before were carried out");
}

void QueueFile::finish() {
  const FailScope scope("queue");
  const AsRoot root;
  const HandoverLock lock;
  const StandingFile file = lock.held() ? standsNow() : StandingFile();
  const bool stands = !file.name.empty();
  if (stands && (!readable_ || reader_->unfinished() > 0)) {
    static_cast<void>(keepAside(place_, file, readable_ ? std::string(kUnfinishedLine) : whyUnread()));
    return;
  }
  const bool isGone = stands && (retireQueueFile(place_, file, identity_, reader_->consumed()) ||
                                 sys::unlinkat(file.folder, file.name.c_str(), 0) == 0);
  if (!isGone) errorLog("Error removing tmp Q file");
}

}  // namespace zvtaskq
