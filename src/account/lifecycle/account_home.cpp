#include "account/lifecycle/account_home.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "account/model/system_accounts.h"
#include "core/config/config.h"
#include "core/files/private_folder.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/process/execute.h"
#include "core/process/system_tool.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"
#include "core/tree/guarded_folder.h"
#include "core/tree/remove_tree.h"

namespace zvtaskq {

namespace {

constexpr const char* kGone = ".zvtaskq-deleted";
/// A way for the user who removes it, and none for anybody else to find what is in it.
constexpr mode_t kGoneMode = 0711;
constexpr std::size_t kSuffixLength = 24;
constexpr int kForegroundTime = 60;
constexpr long long kMegabyte = 1LL << 20;

RemovalLimits foreground() {
  return {std::max(sys_conf->background_delete_size, 0) * kMegabyte, kForegroundTime};
}

/// As its user first, for whom nothing can go wrong that he could not do himself.
Removal removeMoved(const std::string& path, const RemovalLimits& limits) {
  struct stat what {};
  if (sys::lstat(path.c_str(), what) != 0) return {};
  if (S_ISDIR(what.st_mode) && what.st_uid != 0) {
    const AsUser user(Ids{what.st_uid, what.st_gid});
    Removal own = user.taken() ? removeTree(path, limits) : Removal{};
    if (own.isCutShort) return own;
  }
  return removeTree(path, limits);
}

/// Clears the folder of homes that were moved away. 0 when something could not be removed, with a line in `result`.
int clearGone(const std::string& gone, Text& result) {
  const Descriptor folder(sys::open(gone.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  std::vector<std::string> names;
  if (!folder || !namesIn(folder.get(), names))
    return fail(result, "Unable to read ", gone, ": ", std::strerror(errno));
  int done = 1;
  for (const std::string& name : names) {
    const Removal removal = removeMoved(joined(gone, "/", name), {});
    if (removal.isDone()) continue;
    done = fail(result, "Unable to remove ", removal.why);
  }
  return done;
}

int clearInBackground(void* gone) {
  // What it was born with would hold the account's lock as long as it works.
  ::close_range(STDERR_FILENO + 1, ~0U, 0);
  const AsRoot root;
  const std::string& path = *static_cast<std::string*>(gone);
  // One at a time is enough, and is not in the way of another.
  const Descriptor folder(sys::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  if (!folder || sys::flockNow(folder.get(), LOCK_EX) != 0) return 0;
  Text result;
  if (!clearGone(path, result)) errorLog("%s", result.orEmpty());
  return 0;
}

/// A home, by the folder above it.
struct Home {
  std::string path, above, name;
  Descriptor parent;

  bool isMovable() const {
    struct stat what {};
    return sys::fstat(parent.get(), what) == 0 && what.st_uid == 0 && (what.st_mode & (S_IWGRP | S_IWOTH)) == 0;
  }
};

int moveAway(const Home& home, std::string& moved) {
  const Descriptor gone = openPrivateFolderAt(home.parent.get(), kGone, kGoneMode);
  const std::string name = joined(home.name, ".", getRandText(kSuffixLength));
  if (!gone || sys::renameat(home.parent.get(), home.name.c_str(), gone.get(), name.c_str()) != 0) return 0;
  moved = joined(home.above, "/", kGone, "/", name);
  return 1;
}

int removeInPlace(const Home& home, const AccountHolder& holder, Text& result) {
  Removal removal;
  {
    const AsUser user(holder.ids);
    if (!user.taken()) return fail(result, "Unable to work as ", holder.name);
    removal = removeTree(home.path, {LLONG_MAX, kForegroundTime});
  }
  // The empty folder itself is an entry of the one above, which is not his.
  if (sys::unlinkat(home.parent.get(), home.name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) return 1;
  return fail(result, "Unable to remove ", removal.why.empty() ? home.path : removal.why);
}

int removeAsMoved(const Home& home, Text& result) {
  std::string moved;
  if (!moveAway(home, moved)) return fail(result, "Unable to move ", home.path, " away: ", std::strerror(errno));
  const Removal removal = removeMoved(moved, foreground());
  return removal.isDone() || removal.isCutShort ? 1 : fail(result, "Unable to remove ", removal.why);
}

/// What is left where homes are moved to: of this one, when it is large, or of one whose removal was killed.
int clearRest(const Home& home, Text& result) {
  const Descriptor folder(sys::openat(home.parent.get(), kGone, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  std::vector<std::string> names;
  if (!folder || (namesIn(folder.get(), names) && names.empty())) return 1;
  std::string gone = joined(home.above, "/", kGone);
  systemLog("What is left in %s is removed in the background", gone.c_str());
  return runDetached(clearInBackground, &gone) ? 1 : fail(result, "Unable to remove ", gone, " in the background");
}

int removeHere(const Home& home, const AccountHolder& holder, Text& result) {
  struct stat what {};
  if (sys::lstatAt(home.parent.get(), home.name.c_str(), what) != 0) {
    return errno == ENOENT ? 1 : fail(result, "Unable to open ", home.path, ": ", std::strerror(errno));
  }
  if (!S_ISDIR(what.st_mode) || what.st_uid != holder.ids.user) {
    return fail(result, home.path, " is no folder of ", holder.name, "'s, and stays");
  }
  return home.isMovable() ? removeAsMoved(home, result) : removeInPlace(home, holder, result);
}

}  // namespace

int removeHome(const AccountHolder& holder, Text& result) {
  const SystemAccount* account = systemAccounts().find(holder.name.c_str());
  if (account == nullptr || !holder.isPerson()) return 1;
  const PathParts parts(account->home);
  const AsRoot root;
  const Home home{account->home, parts.folder, parts.name, openGuardedFolder(parts.folder.c_str())};
  if (!home.parent) {
    return errno == ENOENT ? 1 : fail(result, "Unable to open ", home.above, ": ", std::strerror(errno));
  }
  const int removed = removeHere(home, holder, result);
  return clearRest(home, result) & removed;
}

int deleteSystemUser(const std::string& name, Text& result) {
  constexpr int kBetweenTries = 100;
  constexpr int kUserIsBusy = 8;
  constexpr int kTries = 30;
  for (int i = 0; i < kTries; ++i) {
    const ToolAnswer answer = runTool(sys_conf->userdel, {name});
    if (answer.succeeded()) return 1;
    if (answer.status != kUserIsBusy) break;
    nap(kBetweenTries);
  }
  return useTool(sys_conf->userdel, {name}, result);
}

}  // namespace zvtaskq
