#include "runner/queue/retired_queue.h"

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <ctime>
#include <memory>
#include <vector>

#include "core/files/private_folder.h"
#include "core/panel/task_queue.h"
#include "core/read/line_reader.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "core/text/text.h"
#include "runner/queue/handover_lock.h"
#include "runner/queue/lost_lines.h"

namespace zvtaskq {

namespace {

/// Seconds after which nobody can still be on the way into a file: an open that takes that long ends in an error.
constexpr std::time_t kRetirement = 10;
/// Marks a file whose late lines are being queued again.
constexpr std::string_view kMoving = ".moving";

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return joined(path.substr(0, slash + 1), ".", path.substr(slash + 1), ".done");
}

/// The bytes done by the name "<inode>.<bytes done>", -1 when it is no such name.
long long bytesDone(const std::string& name) {
  const std::size_t dot = name.find('.');
  long long done = -1;
  if (dot == std::string::npos) return done;
  const char* end = name.data() + name.size();
  const auto read = std::from_chars(name.data() + dot + 1, end, done);
  return read.ec == std::errc() && read.ptr == end ? done : -1;
}

bool hasWriter(int fd) {
  if (sys::takeReadLease(fd) != 0) return errno == EAGAIN;
  static_cast<void>(sys::dropLease(fd));
  return false;
}

std::string linesFrom(int fd, long long offset, long long& end) {
  std::string lines;
  if (::lseek(fd, offset, SEEK_SET) < 0) return lines;
  LineReader reader(fd);
  std::string_view line;
  while (reader.next(line)) lines.append(line).append(1, '\n');
  end = offset + reader.consumed();
  return lines;
}

/// One retired file.
class Retired {
 public:
  Retired(const std::string& queue, const std::string& folder, std::string name)
      : queue_(queue), folder_(folder), name_(std::move(name)), done_(bytesDone(name_)) {}

  void revisit() {
    const Descriptor file(sys::open(path(name_).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    struct stat what {};
    if (!file || sys::fstat(file.get(), what) != 0) return;
    if (done_ < 0) {
      // A crash while its lines were on the way: whether they are queued again nobody can tell.
      static_cast<void>(keepAside(path(name_).c_str(), "lines that came late, perhaps carried out"));
      return;
    }
    if (what.st_size > done_) queueAgain(file.get());
    const bool old = what.st_ctim.tv_sec < std::time(nullptr) - kRetirement;
    if (old && what.st_size == done_ && !hasWriter(file.get())) static_cast<void>(sys::unlink(path(name_).c_str()));
  }

 private:
  std::string path(const std::string& name) const { return joined(folder_, "/", name); }

  void queueAgain(int fd) {
    long long end = done_;
    const std::string lines = linesFrom(fd, done_, end);
    if (lines.empty()) return;
    const std::string moving = name_ + std::string(kMoving);
    if (sys::rename(path(name_).c_str(), path(moving).c_str()) != 0) return;
    const bool queued = appendToQueue(queue_.c_str(), lines) != 0;
    if (!queued) errorLog("Unable to queue lines that came late for %s: %s", queue_.c_str(), getSysResult());
    const std::string inode = name_.substr(0, name_.find('.'));
    const std::string name = queued ? joined(inode, ".", std::to_string(end)) : name_;
    static_cast<void>(sys::rename(path(moving).c_str(), path(name).c_str()));
  }

  const std::string& queue_;
  const std::string& folder_;
  std::string name_;
  long long done_;
};

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  while (const dirent* entry = entries ? ::readdir(entries.get()) : nullptr) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  return names;
}

}  // namespace

int retireQueueFile(const std::string& path, const char* name, long long done) {
  const std::string folder = folderOf(path);
  const Descriptor opened = openPrivateFolder(folder.c_str(), 0700);
  struct stat what {};
  if (!opened || sys::lstat(name, what) != 0) return 0;
  const std::string retired = joined(std::to_string(what.st_ino), ".", std::to_string(done));
  return sys::renameat(AT_FDCWD, name, opened.get(), retired.c_str()) == 0 ? 1 : 0;
}

void revisitRetired(const std::string& path) {
  const FailScope scope("retired");
  const std::string folder = folderOf(path);
  struct stat what {};
  if (sys::lstat(folder.c_str(), what) != 0 || !S_ISDIR(what.st_mode) || what.st_uid != 0) return;
  const HandoverLock lock;
  if (!lock.held()) return;
  for (std::string& name : namesIn(folder)) Retired(path, folder, std::move(name)).revisit();
  // Goes as soon as it is empty.
  static_cast<void>(sys::unlinkat(AT_FDCWD, folder.c_str(), AT_REMOVEDIR));
}

}  // namespace zvtaskq
