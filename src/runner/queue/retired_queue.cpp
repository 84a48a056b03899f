#include "runner/queue/retired_queue.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <ctime>
#include <vector>

#include "core/files/private_folder.h"
#include "core/panel/task_queue.h"
#include "core/read/line_reader.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "core/text/text.h"
#include "core/tree/guarded_folder.h"
#include "runner/queue/handover_lock.h"
#include "runner/queue/lost_lines.h"
#include "runner/queue/queue_file.h"

namespace zvtaskq {

namespace {

/// Seconds after which nobody can still be on the way into a file: an open that takes that long ends in an error.
constexpr std::time_t kRetirement = 10;
/// Bytes of late lines that are queued again at once; the rest waits for the next run.
constexpr std::size_t kMostLate = std::size_t{4} << 20;
constexpr std::string_view kMoving = ".moving";
constexpr std::string_view kBusy = ".busy";
constexpr mode_t kFolderMode = 0700;

/// A name in the folder, taken apart.
struct RetiredName {
  enum class Kind { none, retired, moving, busy };

  explicit RetiredName(std::string_view name) {
    const char* end = name.data() + name.size();
    const auto number = std::from_chars(name.data(), end, inode);
    if (number.ec != std::errc() || number.ptr == end || *number.ptr != '.') return;
    if (std::string_view(number.ptr, static_cast<std::size_t>(end - number.ptr)) == kBusy) kind = Kind::busy;
    const auto bytes = std::from_chars(number.ptr + 1, end, done);
    if (bytes.ec != std::errc() || done < 0) return;
    if (bytes.ptr == end) kind = Kind::retired;
    if (std::string_view(bytes.ptr, static_cast<std::size_t>(end - bytes.ptr)) == kMoving) kind = Kind::moving;
  }

  Kind kind = Kind::none;
  ino_t inode = 0;
  long long done = 0;
};

std::string retiredName(ino_t inode, long long done) {
  return joined(std::to_string(inode), ".", std::to_string(done));
}

/// One file in the folder.
class Retired {
 public:
  Retired(const QueuePlace& queue, int folder, const std::string& name)
      : queue_(queue), file_{folder, name, joined(queue.pathOf(queue.retiredFolder()), "/", name)}, name_(name) {}

  void revisit() {
    // What else stands there nobody put there in the name of a queue.
    if (name_.kind == RetiredName::Kind::none) return;
    struct stat what {};
    if (sys::lstatAt(file_.folder, file_.name.c_str(), what) != 0) return;
    if (!S_ISREG(what.st_mode) || what.st_ino != name_.inode) return keep("another file than the one that was read");
    const Descriptor file(sys::openat(file_.folder, file_.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!file) return;
    switch (name_.kind) {
      case RetiredName::Kind::busy:
        if (sys::flockNow(file.get(), LOCK_EX) == 0) keep("left behind by a run that did not end");
        break;
      case RetiredName::Kind::moving:
        // A crash while its lines were on the way: whether they are queued again nobody can tell.
        keep("lines that came late, perhaps carried out");
        break;
      default:
        if (what.st_size <= name_.done || queueAgain(file.get(), what)) deleteWhenOld(file.get());
    }
  }

 private:
  void keep(const std::string& why) const { static_cast<void>(keepAside(queue_, file_, why)); }

  /// Queues the lines that came late. False when the file has moved to another name, or was kept aside.
  bool queueAgain(int fd, const struct stat& what) {
    std::string lines;
    if (::lseek(fd, name_.done, SEEK_SET) < 0) return false;
    LineReader reader(fd, kLongestTask);
    std::string_view line;
    while (lines.size() < kMostLate && reader.next(line)) lines.append(line).append(1, '\n');
    if (reader.failed()) {
      keep(
          joined("could not be read from byte ", std::to_string(name_.done), " on, the lines before were carried out"));
      return false;
    }
    if (lines.empty()) return true;
    if (!moveTo(file_.name + std::string(kMoving))) return false;
    const bool queued = appendToQueue(queue_.path().c_str(), lines, &what) != 0;
    if (!queued) errorLog("Unable to queue lines that came late for %s: %s", queue_.path().c_str(), getSysResult());
    static_cast<void>(moveTo(retiredName(name_.inode, name_.done + (queued ? reader.consumed() : 0))));
    return false;
  }

  bool moveTo(const std::string& name) {
    if (sys::renameat(file_.folder, file_.name.c_str(), file_.folder, name.c_str()) != 0) return false;
    file_.name = name;
    return true;
  }

  /// What counts is how the file stands once nobody can write to it any more.
  void deleteWhenOld(int fd) const {
    const ReadLease lease(fd);
    struct stat what {};
    if (lease.refused() || sys::fstat(fd, what) != 0) return;
    const std::time_t age = std::time(nullptr) - what.st_ctim.tv_sec;
    // One from the future was retired before the clock was put back.
    if (age <= kRetirement && age >= -kRetirement) return;
    if (what.st_size > name_.done) {
      keep(kUnfinishedLine);
    } else if (!lease.granted() || lease.isWhole()) {
      static_cast<void>(sys::unlinkat(file_.folder, file_.name.c_str(), 0));
    }
  }

  const QueuePlace& queue_;
  StandingFile file_;
  RetiredName name_;
};

int moveThere(const QueuePlace& queue, const StandingFile& file, const std::string& name) {
  const Descriptor folder = openRetired(queue, true);
  return folder && sys::renameat(file.folder, file.name.c_str(), folder.get(), name.c_str()) == 0 ? 1 : 0;
}

}  // namespace

Descriptor openRetired(const QueuePlace& queue, bool make) {
  const char* name = queue.retiredFolder().c_str();
  if (make) return openPrivateFolderAt(queue.folder(), name, kFolderMode);
  Descriptor folder(sys::openat(queue.folder(), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  struct stat what {};
  if (folder && sys::fstat(folder.get(), what) == 0 && what.st_uid == 0) return folder;
  return {};
}

int retireQueueFile(const QueuePlace& queue, const StandingFile& file, const struct stat& what, long long done) {
  return moveThere(queue, file, retiredName(what.st_ino, done));
}

int overtake(const QueuePlace& queue, const StandingFile& file, const struct stat& what) {
  return moveThere(queue, file, overtakenName(what));
}

std::string overtakenName(const struct stat& what) {
  return joined(std::to_string(what.st_ino), kBusy);
}

void revisitRetired(const QueuePlace& queue) {
  const FailScope scope("retired");
  const Descriptor folder = openRetired(queue, false);
  if (!folder) return;
  const HandoverLock lock;
  std::vector<std::string> names;
  if (!lock.held() || !namesIn(folder.get(), names)) return;
  for (const std::string& name : names) Retired(queue, folder.get(), name).revisit();
  // Goes as soon as it is empty.
  static_cast<void>(sys::unlinkat(queue.folder(), queue.retiredFolder().c_str(), AT_REMOVEDIR));
}

}  // namespace zvtaskq
