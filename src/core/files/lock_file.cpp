#include "core/files/lock_file.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include "core/sys/dates.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr int kTries = 200;
constexpr useconds_t kPause = 10'000;
constexpr std::size_t kLongestCaller = 700;
bool lockDebug = false;

[[gnu::format(printf, 2, 3)]] void setReason(char* reason, const char* format, ...) {
  if (reason == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(reason, kLockReasonSize, format, arguments);
  va_end(arguments);
}

/// What a person needs to know of a lock that could not be made.
std::string describe(const std::string& path) {
  struct stat what {};
  if (sys::lstat(path.c_str(), what) != 0) {
    return joined(path, ": ", std::strerror(errno), ", euid:", std::to_string(::geteuid()),
                  " egid:", std::to_string(::getegid()));
  }
  char mode[16];
  std::snprintf(mode, sizeof mode, "%o", what.st_mode);
  return joined(path, ": uid:", std::to_string(what.st_uid), " gid:", std::to_string(what.st_gid), " mode:", mode,
                ", euid:", std::to_string(::geteuid()), " egid:", std::to_string(::getegid()));
}

bool isStale(const struct stat& lock, int maximumAge, long long& age) {
  const long long now = std::time(nullptr);
  age = now - lock.st_ctim.tv_sec;
  return ageOf(lock.st_ctim.tv_sec, now, maximumAge).seconds > maximumAge;
}

/// A lock file by its folder, opened once, and its name there: between two looks nothing leads to another folder.
struct LockPlace {
  explicit LockPlace(const std::string& lockPath)
      : path(lockPath),
        name(PathParts(lockPath).name),
        folder(sys::open(PathParts(lockPath).folder.c_str(), O_PATH | O_DIRECTORY)) {}
  bool look(struct stat& what) const { return sys::lstatAt(folder.get(), name.c_str(), what) == 0; }
  Descriptor open(int flags) const {
    return Descriptor(folder ? sys::openat(folder.get(), name.c_str(), flags, 0700) : -1);
  }

  const std::string& path;
  std::string name;
  Descriptor folder;
};

/// Deletes a stale lock. Several waiters find it at once; the one that holds a `flock` on the very file it found
/// stale may delete it, and only while it still is the file of that name, so nobody deletes a fresh lock.
void breakIfStale(const LockPlace& place, int maximumAge) {
  struct stat seen {};
  long long age = 0;
  if (!place.look(seen) || !isStale(seen, maximumAge, age)) return;

  const Descriptor opened = place.open(O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (opened && sys::flockNow(opened.get(), LOCK_EX) != 0) return;
  struct stat mine {};
  struct stat now {};
  if (opened && sys::fstat(opened.get(), mine) != 0) return;
  if (!place.look(now) || !isStale(now, maximumAge, age)) return;
  if (opened && !sameFile(mine, now)) return;

  errorLog("removing old lock: %s (age: %d seconds)", place.path.c_str(), static_cast<int>(age));
  static_cast<void>(sys::unlinkat(place.folder.get(), place.name.c_str(), 0));
}

/// One line, whatever the caller is called: a look at a lock must not be misled by what stands in it.
void writeCaller(int fd, const char* path, const char* caller) {
  const std::string who = printable(text_detail::part(caller)).substr(0, kLongestCaller);
  char line[kLongestCaller + 128];
  const int length = std::snprintf(line, sizeof line, "%d=time=%lld&caller_location=%s\n", static_cast<int>(::getpid()),
                                   static_cast<long long>(std::time(nullptr)), who.c_str());
  const std::string_view text(line, static_cast<std::size_t>(length));
  if (sys::writeAll(fd, text) == text.size()) return;
  errorLog("getLock debug: cannot fdopen %s.lock for code '%s': %s", path, caller == nullptr ? "" : caller,
           std::strerror(errno));
}

/// Tells a crash report that the attempt is on, or over.
void markAttempt(const char* path, const char* caller, bool started) {
  if (caller == nullptr) {
    set_program_location(started ? "getlock(%s) : start" : "getlock(%s) : finished", path);
  } else {
    set_program_location(started ? "getlock(%s, '%s') : start" : "getlock(%s, '%s') : finished", path, caller);
  }
}

Descriptor cannotMake(const char* lockPath, char* reason) {
  const std::string why = std::strerror(errno);
  setReason(reason, "open error for %s: %s<br>\n%s", lockPath, why.c_str(), describe(lockPath).c_str());
  return {};
}

constexpr const char* kLockedByAnother = "file is locked by another process";

/// What is asked for: `own` is null for a lock that has no life beyond its age.
struct Wish {
  const char* path;
  const char* own;
  int maximumAge;
  const char* caller;
  char* reason;
};

/// The file that a lock for life is a name of, under its `flock`, and no lock of a dead holder any more. None with the
/// reason set: it has a living holder, or cannot be had.
Descriptor openOwn(const Wish& wish, const LockPlace& place) {
  Descriptor file(sys::open(wish.own, O_RDWR | O_CREAT | O_NOFOLLOW, 0700));
  if (!file) return cannotMake(wish.own, wish.reason);
  if (sys::flockNow(file.get(), LOCK_EX) != 0) {
    if (errno != EWOULDBLOCK) return cannotMake(wish.own, wish.reason);
    setReason(wish.reason, "%s", kLockedByAnother);
    return {};
  }
  struct stat mine {};
  struct stat there {};
  if (sys::fstat(file.get(), mine) == 0 && place.look(there) && sameFile(mine, there)) {
    debug(100, "%s: its holder is dead", place.path.c_str());
    static_cast<void>(sys::unlinkat(place.folder.get(), place.name.c_str(), 0));
  }
  return file;
}

/// Makes the lock file: anew, or as another name of the open file of one's own.
Descriptor makeOnce(const Wish& wish, const LockPlace& place, Descriptor& own) {
  if (wish.own == nullptr) return place.open(O_WRONLY | O_CREAT | O_EXCL);
  return sys::link(wish.own, place.path.c_str()) == 0 ? Descriptor(own.release()) : Descriptor();
}

/// The descriptor of the lock file made, or none with the reason set.
Descriptor makeLock(const Wish& wish, const LockPlace& place) {
  Descriptor own;
  if (wish.own != nullptr && !(own = openOwn(wish, place))) return {};
  for (int i = 0; i < kTries; ++i) {
    Descriptor lock = makeOnce(wish, place, own);
    if (lock) {
      if (lockDebug && wish.own == nullptr) writeCaller(lock.get(), wish.path, wish.caller);
      return lock;
    }
    if (errno != EEXIST) return cannotMake(place.path.c_str(), wish.reason);
    breakIfStale(place, wish.maximumAge);
    ::usleep(kPause);
  }
  setReason(wish.reason, "%s", kLockedByAnother);
  return {};
}

/// The open lock file, or none with the reason set. `folder`, unless null, gets the folder it stands in.
Descriptor attempt(const Wish& wish, Descriptor* folder) {
  const char* const path = wish.path;
  if (path == nullptr || *path == '\0') {
    setReason(wish.reason, "empty file_name");
    return {};
  }
  if (std::strlen(path) < 2) {
    setReason(wish.reason, "short file_name");
    return {};
  }
  const FailScope scope("lock");
  markAttempt(path, wish.caller, true);
  const std::string lockPath = joined(path, ".lock");
  LockPlace place(lockPath);
  Descriptor lock = makeLock(wish, place);
  if (lock && folder != nullptr) *folder = std::move(place.folder);
  markAttempt(path, wish.caller, false);
  return lock;
}

}  // namespace

void setLockDebug(bool on) {
  lockDebug = on;
}

int getLock(const char* path, int maximumAge, const char* caller, char* reason) {
  return attempt({path, nullptr, maximumAge, caller, reason}, nullptr) ? 1 : 0;
}

int getLock(const char* path, const char* caller) {
  return getLock(path, kLockMaximumAge, caller, nullptr);
}

void freeLock(const char* path) {
  static_cast<void>(sys::unlink(joined(path, ".lock").c_str()));
}

int FileLock::take(const char* path, int maximumAge, const char* caller, char* reason) {
  release();
  return keep(attempt({path, nullptr, maximumAge, caller, reason}, &folder_), path);
}

int FileLock::takeForLife(const char* path, const char* own, int maximumAge, const char* caller, char* reason) {
  release();
  return keep(attempt({path, own, maximumAge, caller, reason}, &folder_), path);
}

int FileLock::keep(Descriptor file, const char* path) {
  file_ = std::move(file);
  if (!file_) return 0;
  name_ = PathParts(joined(path, ".lock")).name;
  return 1;
}

void FileLock::release() {
  if (!held()) return;
  struct stat mine {};
  struct stat now {};
  if (sys::fstat(file_.get(), mine) == 0 && sys::lstatAt(folder_.get(), name_.c_str(), now) == 0 &&
      sameFile(mine, now)) {
    static_cast<void>(sys::unlinkat(folder_.get(), name_.c_str(), 0));
  }
  file_.reset();
  folder_.reset();
}

}  // namespace zvtaskq
