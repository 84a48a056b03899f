#include "tally/logs/rotation.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "core/config/config.h"
#include "core/files/bounded_copy.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "core/tree/guarded_folder.h"

namespace zvtaskq {

namespace {

constexpr int kMostKept = 1'000'000;
constexpr int kMostDepth = 400;
constexpr int kLargestNumber = 400;
/// Bytes that a writer may add while its log is copied.
constexpr long long kMostAdded = 256LL << 20;

/// A log within its folder, which is held open; the path is for the messages.
struct LogFile {
  int folder;
  std::string folderPath;
  std::string name;
  std::string path() const { return folderPath + name; }
};

/// The name of the next place; nothing when the number at the end is 0.
std::optional<std::string> nextName(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  const std::string digits = dot == std::string::npos ? "" : name.substr(dot + 1);
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return name + ".1";
  const std::size_t first = digits.find_first_not_of('0');
  if (first == std::string::npos) return std::nullopt;
  const std::string number = digits.substr(first);
  const int n = number.size() > 3 ? kLargestNumber + 1 : std::stoi(number);
  if (n > kLargestNumber) return name + "." + number;
  return name.substr(0, dot) + "." + std::to_string(n + 1);
}

bool isHardOrSymbolicLink(const struct stat& what) {
  return S_ISLNK(what.st_mode) || (S_ISREG(what.st_mode) && what.st_nlink > 1);
}

int refuseLink(const std::string& path) {
  refusalLog(10, "Tally::rotate_log_up(%s): is hard or symbolic link", path.c_str());
  return 0;
}

/// What the system said about a log that cannot even be looked at.
int tellFault(const std::string& path) {
  errorLog("Tally::rotate_log_up: %s: %s", path.c_str(), std::strerror(errno));
  return 0;
}

/// The content of the log into the new file, and the log emptied. 0 with errno.
int emptyInto(int source, int target) {
  struct stat what {};
  if (sys::fstat(source, what) != 0) return 0;
  if (isHardOrSymbolicLink(what) || !S_ISREG(what.st_mode)) {
    errno = EMLINK;
    return 0;
  }
  if (sys::fchown(target, what.st_uid, what.st_gid) != 0 || sys::fchmod(target, what.st_mode & 0777) != 0) return 0;
  BoundedCopy copy(source, target, what.st_blocks * 512LL + kMostAdded);
  // The bulk is made safe first, so that only what came meanwhile lies between the last look and the emptying.
  if (!copy.toEnd() || sys::fsync(target) != 0) return 0;
  return copy.toEnd() && sys::ftruncate(source, 0) == 0 ? 1 : 0;
}

int copyAndEmpty(const LogFile& log, const std::string& next) {
  const Descriptor source(sys::openat(log.folder, log.name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK));
  if (!source) return 0;
  const Descriptor target(sys::openat(log.folder, next.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (!target) return 0;
  if (emptyInto(source.get(), target.get())) return 1;
  const int error = errno;
  static_cast<void>(sys::unlinkat(log.folder, next.c_str(), 0));
  errno = error;
  return 0;
}

int move(const LogFile& log, const std::string& next, bool copyAndTruncate) {
  if (copyAndTruncate) {
    if (!copyAndEmpty(log, next)) {
      errorLog("Tally::rotate_log_up: %s -> %s copy error: %s", log.path().c_str(), (log.folderPath + next).c_str(),
               std::strerror(errno));
    }
    return 1;
  }
  if (sys::renameat(log.folder, log.name.c_str(), log.folder, next.c_str()) == 0) return 1;
  errorLog("Tally::rotate_log_up: %s: renameFile error: %s", log.path().c_str(), std::strerror(errno));
  return 0;
}

int remove(const LogFile& log) {
  if (sys::unlinkat(log.folder, log.name.c_str(), 0) == 0) return 1;
  errorLog("Tally::rotate_log_up: %s: unlinkFile error: %s", log.path().c_str(), std::strerror(errno));
  return 0;
}

int tooDeep(const std::string& path, int depth) {
  if (depth <= kMostDepth) return 0;
  errorLog("Tally::rotate_log_up(%s): recursive depth %d > %d", path.c_str(), depth, kMostDepth);
  return 1;
}

int rotate(const LogFile& log, int keep, int depth, bool copyAndTruncate) {
  struct stat what {};
  if (sys::lstatAt(log.folder, log.name.c_str(), what) != 0) return errno == ENOENT ? 1 : tellFault(log.path());
  if (tooDeep(log.path(), depth)) return 0;
  if (isHardOrSymbolicLink(what)) return refuseLink(log.path());
  if (depth + 1 >= keep) return remove(log);
  const std::optional<std::string> next = nextName(log.name);
  if (!next) {
    errorLog("Tally::rotate_log_up: couldn't figure out log number for %s", log.path().c_str());
    return 0;
  }
  if (!rotate(LogFile{log.folder, log.folderPath, *next}, keep, depth + 1, false)) return 0;
  return move(log, *next, copyAndTruncate);
}

}  // namespace

int logs_to_keep(const Config* conf) {
  const int keep = std::clamp(conf->logs_to_keep, 0, kMostKept);
  return conf->nginx_proxy != 0 ? 2 * keep : keep;
}

int rotate_log_up(const char* path, const Config* conf, int depth, bool copyAndTruncate) {
  const std::string whole = path == nullptr ? "" : path;
  if (whole.empty()) {
    errorLog("Tally::rotate_log_up: logname=NULL");
    return 0;
  }
  if (tooDeep(whole, depth)) return 0;
  const AsRoot root;
  const FailScope scope("log_rotation");
  const std::size_t name = whole.rfind('/') + 1;
  const std::string folderPath = whole.substr(0, name);
  const Descriptor folder = openGuardedFolder(folderPath.empty() ? "." : folderPath.c_str());
  if (folder)
    return rotate(LogFile{folder.get(), folderPath, whole.substr(name)}, logs_to_keep(conf), depth, copyAndTruncate);
  if (errno == ENOENT || errno == ENOTDIR) return 1;
  if (errno == ELOOP) return refuseLink(whole);
  return tellFault(whole);
}

int rotateLogIn(int folder, const std::string& folderPath, const std::string& name, const Config* conf) {
  const FailScope scope("log_rotation");
  return rotate(LogFile{folder, folderPath, name}, logs_to_keep(conf), 0, false);
}

}  // namespace zvtaskq
