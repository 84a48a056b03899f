// The way into the homes for the servers alone: a group that they are members of, instead of everybody.
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "account/model/system_accounts.h"
#include "account/model/user_folder.h"
#include "account/upkeep/each_account.h"
#include "account/upkeep/rows.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

using Clock = std::chrono::steady_clock;

/// The owner goes about in it, the servers go through it.
constexpr mode_t kHomeMode = 0710;
/// What the servers read besides: pages, and the passwords of those who may see them.
constexpr const char* kServed[] = {"domains", ".htpasswd"};
/// What the account's own group was trusted with, and a group of servers is not; the second would also let the user
/// make things that act as the group.
constexpr mode_t kNotForServers = S_IWGRP | S_ISGID;

/// One account's home.
class GroupChange {
 public:
  GroupChange(const OpenedFolder& home, Ids owner, gid_t group)
      : home_(home), owner_(owner), group_(group), seconds_(sys_conf->account_time_limit) {}

  /// Of the files the home itself last: it is what closes the way that there was before. 0 with an error-log line.
  int change() {
    int outcome = 1;
    for (const char* name : kServed) outcome &= changeBelow(name);
    const int home = home_.folder.get();
    if (sys::fchown(home, static_cast<uid_t>(-1), group_) == 0 && sys::fchmod(home, kHomeMode) == 0) return outcome;
    return tell("", std::strerror(errno));
  }

 private:
  int changeBelow(const char* name) {
    struct stat what {};
    if (sys::lstatAt(home_.folder.get(), name, what) != 0)
      return errno == ENOENT ? 1 : tell(name, std::strerror(errno));
    int outcome = 1;
    const int walked = walkTreeAt(home_.folder.get(), name, [&](const TreeEntry& entry) {
      if (entry.leaving) return 1;
      if (isTimeOver()) return 0;
      if (!give(entry)) outcome = tell(entry.path.c_str(), std::strerror(errno));
      return 1;
    });
    if (walked) return outcome;
    return tell(name, isTimeOver() ? "the time of the account is used up (account_time_limit)" : std::strerror(errno));
  }

  bool isTimeOver() const { return seconds_ > 0 && Clock::now() - start_ > std::chrono::seconds(seconds_); }

  /// Gives the servers' group what belongs to the user and his own group; what he shares with others stays theirs. 0
  /// with errno.
  int give(const TreeEntry& entry) const {
    const Descriptor pinned(sys::openat(entry.folder, entry.name, O_PATH | O_NOFOLLOW));
    struct stat what {};
    if (!pinned && errno == ENOENT) return 1;
    if (!pinned || sys::fstat(pinned.get(), what) != 0) return 0;
    if (S_ISLNK(what.st_mode) || what.st_uid != owner_.user) return 1;
    if (what.st_gid != owner_.group && what.st_gid != group_) return 1;
    const mode_t mode = what.st_mode & 07777 & ~kNotForServers;
    if (mode != (what.st_mode & 07777) && sys::chmodPinned(pinned.get(), mode) != 0) return 0;
    return what.st_gid == group_ || sys::chownPinned(pinned.get(), static_cast<uid_t>(-1), group_) == 0 ? 1 : 0;
  }

  int tell(const char* name, const char* why) const {
    errorLog("Unable to set the access group in %s/%s: %s", home_.path.c_str(), name, why);
    return 0;
  }

  const OpenedFolder& home_;
  Ids owner_;
  gid_t group_;
  int seconds_;
  Clock::time_point start_ = Clock::now();
};

int changeGroupIn(const char* account, gid_t group) {
  const Ids owner = systemAccounts().idsOf(account);
  // The panel's own user has no home of his own: it is the panel's folder.
  if (account == std::string_view(kPanelUser) || owner.user == kRootIds.user) return 1;
  const OpenedFolder home = openHome(account);
  if (!home) return 0;
  const AsRoot root;
  return root.taken() ? GroupChange(home, owner, group).change() : 0;
}

}  // namespace

int rewriteAccessGroup(const Task&) {
  if (isDemo()) return 1;
  if (sys_conf->secure_access_group.isEmpty()) {
    errorLogAndDebug(10, "Unable to rewrite secure_access_group.  It's not set in the zorvane.conf");
    return 0;
  }
  const unsigned group = getGID(sys_conf->secure_access_group, 1);
  if (group == kUnknownId) {
    errorLog("Unable to rewrite secure_access_group: there is no group %s", sys_conf->secure_access_group.orEmpty());
    return 0;
  }
  const int outcome =
      forEachAccount(nullptr, "the access group", [&](const char* account) { return changeGroupIn(account, group); });
  // A server learns when it starts which groups it is in.
  for (const char* service : {"httpd", "exim", "proftpd", "zorvane"}) queueTask(service, "restart");
  if (sys_conf->dovecot) queueTask("dovecot", "restart");
  return outcome;
}

}  // namespace zvtaskq
