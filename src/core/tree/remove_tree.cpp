#include "core/tree/remove_tree.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "core/sys/safe_point.h"
#include "core/text/text.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

using Clock = std::chrono::steady_clock;
constexpr long long kBlock = 512;
/// As far as the clock can count.
constexpr int kMostSeconds = 10 * 365 * 86400;

class Remover {
 public:
  Remover(const std::string& path, const RemovalLimits& limits)
      : limits_(limits), end_(Clock::now() + std::chrono::seconds(std::min(limits.seconds, kMostSeconds))) {
    knowsMount_ = sys::mountAt(AT_FDCWD, path.c_str(), mount_);
    struct stat what {};
    if (sys::lstat(path.c_str(), what) == 0) device_ = what.st_dev;
  }

  int visit(const TreeEntry& entry) {
    atSafePoint();
    if (S_ISDIR(entry.what.st_mode) && !entry.leaving) return enter(entry);
    if (sys::unlinkat(entry.folder, entry.name, entry.leaving ? AT_REMOVEDIR : 0) == 0) {
      removal.bytes += entry.what.st_blocks * kBlock;
    } else if (errno != ENOENT) {
      note(entry.path, std::strerror(errno));
    }
    removal.isCutShort = removal.bytes > limits_.bytes || Clock::now() >= end_;
    return removal.isCutShort ? 0 : 1;
  }

  void note(const std::string& path, const char* why) {
    if (removal.failures++ == 0) removal.why = joined(path, ": ", why);
  }

  Removal removal;

 private:
  int enter(const TreeEntry& entry) {
    unsigned long long mount = mount_;
    const bool known = knowsMount_ && sys::mountAt(entry.folder, entry.name, mount);
    if (entry.what.st_dev == device_ && (!known || mount == mount_)) return 1;
    note(entry.path, "something is mounted there");
    return kPassBy;
  }

  const RemovalLimits& limits_;
  Clock::time_point end_;
  unsigned long long mount_ = 0;
  bool knowsMount_ = false;
  dev_t device_ = 0;
};

}  // namespace

Removal removeTree(const std::string& path, const RemovalLimits& limits) {
  Remover remover(path, limits);
  const int walked = walkTree(path.c_str(), [&](const TreeEntry& entry) { return remover.visit(entry); });
  // A top that is not there, or that vanished meanwhile, is done with.
  if (!walked && !remover.removal.isCutShort && errno != ENOENT) remover.note(path, std::strerror(errno));
  return remover.removal;
}

}  // namespace zvtaskq
