#include "runner/queue/lost_lines.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "core/files/bounded_copy.h"
#include "core/panel/state_folder.h"
#include "core/sys/fail_point.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/text/text.h"
#include "core/tree/guarded_folder.h"

namespace zvtaskq {

namespace {

constexpr const char* kFolder = "task_queue_lost";
constexpr std::size_t kKept = 20;
constexpr long long kMostData = 16LL << 20;
constexpr std::size_t kLongestQueueName = 180;
constexpr std::string_view kPartial = ".part";

/// Sorts by time, and always has the same length: "20261122-213005.123456789".
std::string stampNow() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  std::tm local{};
  ::localtime_r(&now.tv_sec, &local);
  char text[64];
  std::snprintf(text, sizeof text, "%.4d%.2d%.2d-%.2d%.2d%.2d.%.9ld", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec);
  return text;
}

/// What the kept files of a queue end in.
std::string endingOf(const QueuePlace& queue) {
  std::string ending = queue.path();
  std::replace(ending.begin(), ending.end(), '/', '_');
  return ending.size() > kLongestQueueName ? ending.substr(ending.size() - kLongestQueueName) : ending;
}

/// Gives what was moved to the panel: whoever could read the queue has no business with what is kept of it. A file that
/// has another name too may be somebody else's, and stays as it is.
bool settle(int folder, const std::string& name) {
  const Descriptor kept(sys::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW));
  struct stat what {};
  if (!kept || sys::fstat(kept.get(), what) != 0 || S_ISDIR(what.st_mode)) return false;
  if (!S_ISREG(what.st_mode) || what.st_nlink > 1) return true;
  static_cast<void>(sys::chmodNoFollow(folder, name.c_str(), 0600));
  static_cast<void>(sys::chownPinned(kept.get(), getUID(kPanelUser), getGID(kPanelUser, 0)));
  return true;
}

bool fillCopy(const StandingFile& file, int copy) {
  const Descriptor source(sys::openat(file.folder, file.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  struct stat what {};
  if (!source || sys::fstat(source.get(), what) != 0) return false;
  if (!S_ISREG(what.st_mode)) {
    errno = EINVAL;
    return false;
  }
  return copyContent(source.get(), copy, what.st_size, kMostData) && sys::fsync(copy) == 0;
}

/// Across file systems nothing can be renamed: a copy becomes whole under another name first, and the original goes
/// when the copy is safe on the disk.
bool copyInto(int folder, const StandingFile& file, const std::string& to) {
  const std::string partial = joined(to, kPartial);
  Descriptor copy(sys::openat(folder, partial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (copy && fillCopy(file, copy.get()) && copy.close() == 0 &&
      sys::renameat(folder, partial.c_str(), folder, to.c_str()) == 0 && sys::fsync(folder) == 0 &&
      settle(folder, to) && sys::unlinkat(file.folder, file.name.c_str(), 0) == 0) {
    return true;
  }
  const int error = errno;
  for (const std::string& name : {partial, to}) static_cast<void>(sys::unlinkat(folder, name.c_str(), 0));
  errno = error;
  return false;
}

bool moveInto(int folder, const StandingFile& file, const std::string& to) {
  struct stat what {};
  if (sys::lstatAt(file.folder, file.name.c_str(), what) != 0) return false;
  errno = S_ISDIR(what.st_mode) ? EISDIR : EFBIG;
  if (S_ISDIR(what.st_mode) || (S_ISREG(what.st_mode) && what.st_blocks * 512LL > kMostData)) return false;
  if (sys::renameat(file.folder, file.name.c_str(), folder, to.c_str()) != 0) {
    return errno == EXDEV && copyInto(folder, file, to);
  }
  if (settle(folder, to)) return true;
  // A folder was put in its place since the look.
  static_cast<void>(sys::renameat(folder, to.c_str(), file.folder, file.name.c_str()));
  errno = EISDIR;
  return false;
}

/// Deletes all but the newest of one queue, and what a crash left of a copy. The names sort by time; those of a time
/// that is yet to come were made before the clock was put back.
void keepNewest(int folder, const std::string& ending, const std::string& last) {
  std::vector<std::string> names, kept;
  if (!namesIn(folder, names)) return;
  for (const std::string& name : names) {
    if (name.ends_with(kPartial)) static_cast<void>(sys::unlinkat(folder, name.c_str(), 0));
    if (name.size() == last.size() && name.ends_with(ending)) kept.push_back(name);
  }
  std::sort(kept.begin(), kept.end());
  std::rotate(kept.begin(), std::upper_bound(kept.begin(), kept.end(), last), kept.end());
  for (std::size_t i = 0; i + kKept < kept.size(); ++i) static_cast<void>(sys::unlinkat(folder, kept[i].c_str(), 0));
}

}  // namespace

int keepAside(const QueuePlace& queue, const StandingFile& file, const std::string& why) {
  const FailScope scope("keep_aside");
  const std::string stamp = stampNow(), ending = endingOf(queue), name = stamp + ending;
  const std::string path = stateFile(joined(kFolder, "/", name));
  const Descriptor folder = openStateFolder(kFolder);
  if (folder && moveInto(folder.get(), file, name)) {
    errorLog("%s: its lines are kept aside as %s: %s", file.path.c_str(), path.c_str(), why.c_str());
    keepNewest(folder.get(), ending, name);
    return 1;
  }
  const std::string reason = std::strerror(errno);
  const std::string beside = joined(queue.name(), ".", stamp);
  if (sys::renameat(file.folder, file.name.c_str(), queue.folder(), beside.c_str()) != 0) return 0;
  errorLog("%s: its lines are kept aside as %s (%s: %s): %s", file.path.c_str(), queue.pathOf(beside).c_str(),
           path.c_str(), reason.c_str(), why.c_str());
  return 1;
}

}  // namespace zvtaskq
