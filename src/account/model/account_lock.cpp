#include "account/model/account_lock.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "account/model/account_name.h"
#include "core/panel/state_folder.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {

constexpr const char* kFolder = "accounts";
constexpr int kBetweenTries = 100;

struct Holding {
  std::string account;
  Descriptor file;
  int count = 0;
};

/// What this process holds: a child that was forked holds nothing of its parent's. A place stays when it is free again,
/// so that numbers stay right.
std::vector<Holding>& holdings() {
  static std::vector<Holding> all;
  static pid_t owner = ::getpid();
  if (owner != ::getpid()) all.clear();
  owner = ::getpid();
  return all;
}

int placeOf(std::string_view account) {
  std::vector<Holding>& all = holdings();
  int free = -1;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i].count > 0 && all[i].account == account) return static_cast<int>(i);
    if (all[i].count == 0) free = static_cast<int>(i);
  }
  if (free < 0) {
    free = static_cast<int>(all.size());
    all.emplace_back();
  }
  all[static_cast<std::size_t>(free)].account = account;
  return free;
}

/// The file under a lock of ours; not open with errno, EWOULDBLOCK when somebody else has it.
Descriptor tryLock(int folder, const char* account) {
  Descriptor file(sys::openat(folder, account, O_RDWR | O_CREAT | O_NOFOLLOW, 0600));
  if (!file || sys::flockNow(file.get(), LOCK_EX) != 0) return {};
  // One that was removed meanwhile keeps nobody out.
  struct stat what {};
  if (sys::fstat(file.get(), what) == 0 && what.st_nlink > 0) return file;
  errno = EWOULDBLOCK;
  return {};
}

/// The folder of the locks, which stays open for the next: a tally takes ten thousand.
const Descriptor& lockFolder() {
  static Descriptor folder;
  static std::string path;
  struct stat what {};
  const bool isStill = folder && path == stateFile(kFolder) && sys::fstat(folder.get(), what) == 0 && what.st_nlink > 0;
  if (!isStill) folder = openStateFolder(kFolder);
  path = stateFile(kFolder);
  return folder;
}

Descriptor lockWithin(const char* account, int seconds) {
  const AsUser panel(kPanelUser);
  const Descriptor& folder = lockFolder();
  if (!panel.taken() || !folder) return {};
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  Descriptor file = tryLock(folder.get(), account);
  while (!file && errno == EWOULDBLOCK && std::chrono::steady_clock::now() < end) {
    sleepSafely(kBetweenTries);
    file = tryLock(folder.get(), account);
  }
  return file;
}

}  // namespace

AccountLock::AccountLock(const char* account, int seconds) {
  if (!isAccountName(account)) {
    errno = EINVAL;
    return;
  }
  const int place = placeOf(account);
  Holding& holding = holdings()[static_cast<std::size_t>(place)];
  if (holding.count == 0) holding.file = lockWithin(account, seconds);
  if (!holding.file) return;
  ++holding.count;
  place_ = place;
}

AccountLock::~AccountLock() {
  if (!held()) return;
  const int error = errno;
  Holding& holding = holdings()[static_cast<std::size_t>(place_)];
  if (--holding.count == 0) holding.file.reset();
  errno = error;
}

}  // namespace zvtaskq
