#include "core/sys/identity.h"

#include <grp.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>
#include <optional>
#include <vector>

#include "core/sys/fail_point.h"

namespace zvtaskq {

namespace {

/// One account as the system knows it; nothing when it does not.
std::optional<Ids> lookUpAccount(const char* name) {
  std::vector<char> room(4096);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwnam_r(name, &entry, room.data(), room.size(), &found) == ERANGE) room.resize(room.size() * 2);
  if (found == nullptr) return std::nullopt;
  return Ids{entry.pw_uid, entry.pw_gid};
}

/// Accounts already looked up. A server with 50,000 of them answers each look-up by reading its account file, so
/// answers are kept until that file changes.
class AccountCache {
 public:
  std::optional<Ids> find(const char* name) {
    if (accountsFile_.hasChanged()) accounts_.clear();
    const auto known = accounts_.find(name);
    if (known != accounts_.end()) return known->second;
    const std::optional<Ids> ids = lookUpAccount(name);
    if (ids) accounts_.emplace(name, *ids);
    return ids;
  }

 private:
  std::map<std::string, Ids, std::less<>> accounts_;
  AccountsFile accountsFile_;
};

std::optional<Ids> accountIds(const char* name) {
  static AccountCache cache;
  return name == nullptr ? std::nullopt : cache.find(name);
}

/// The effective identity, when it was seen by a call that asked the system. Nobody but this file changes it, so it
/// still holds: asking again costs as much as the rest of a queue line.
std::optional<Ids> verified;

bool effectiveIdsAre(Ids want) {
  uid_t realUser = 0, user = 0, savedUser = 0;
  gid_t realGroup = 0, group = 0, savedGroup = 0;
  return ::getresuid(&realUser, &user, &savedUser) == 0 && ::getresgid(&realGroup, &group, &savedGroup) == 0 &&
         user == want.user && group == want.group;
}

int setEffectiveUser(uid_t user) {
  if (failPoint("identity.seteuid")) return -1;
  return ::seteuid(user);
}

int setEffectiveGroup(gid_t group) {
  if (failPoint("identity.setegid")) return -1;
  return ::setegid(group);
}

}  // namespace

bool AccountsFile::hasChanged() {
  if (!tick_.hasPassed()) return false;
  struct stat now {};
  if (::stat("/etc/passwd", &now) != 0) now = {};
  const bool isSame = now.st_ino == seen_.st_ino && now.st_size == seen_.st_size &&
                      now.st_mtim.tv_sec == seen_.st_mtim.tv_sec && now.st_mtim.tv_nsec == seen_.st_mtim.tv_nsec;
  seen_ = now;
  return !isSame;
}

Ids effectiveIds() {
  return verified ? *verified : Ids{::geteuid(), ::getegid()};
}

Ids realIds() {
  return {::getuid(), ::getgid()};
}

unsigned getUID(const char* name) {
  if (name != nullptr && std::strcmp(name, "root") == 0) return 0;
  const std::optional<Ids> ids = accountIds(name);
  return ids ? ids->user : kUnknownId;
}

unsigned getGID(const char* name, int fromGroupDatabase) {
  if (name == nullptr) return kUnknownId;
  if (std::strcmp(name, "root") == 0) return 0;
  if (!fromGroupDatabase) {
    const std::optional<Ids> ids = accountIds(name);
    return ids ? ids->group : kUnknownId;
  }
  std::vector<char> room(4096);
  group entry{};
  group* found = nullptr;
  while (::getgrnam_r(name, &entry, room.data(), room.size(), &found) == ERANGE) room.resize(room.size() * 2);
  return found == nullptr ? kUnknownId : entry.gr_gid;
}

Ids idsOf(const char* name) {
  return {getUID(name), getGID(name, 0)};
}

std::string getUIDname(unsigned uid) {
  std::vector<char> room(4096);
  passwd entry{};
  passwd* found = nullptr;
  while (::getpwuid_r(uid, &entry, room.data(), room.size(), &found) == ERANGE) room.resize(room.size() * 2);
  return found == nullptr ? std::string() : std::string(entry.pw_name);
}

Ids nobodyIds() {
  static const Ids ids = lookUpAccount("nobody").value_or(Ids{kUnknownId, kUnknownId});
  return ids;
}

int switchEffective(Ids to) {
  // Asked once a queue line, and most often there is nothing to do.
  if (verified && verified->user == to.user && verified->group == to.group) return 1;
  const Ids now = effectiveIds();
  verified.reset();
  if (now.user != to.user || now.group != to.group) {
    // From root there is nothing to gain first.
    if (now.user != 0 && setEffectiveUser(0) != 0) return 0;
    if (setEffectiveGroup(to.group) != 0) return 0;
    if (to.user != 0 && setEffectiveUser(to.user) != 0) return 0;
    if (!effectiveIdsAre(to)) {
      errno = EPERM;
      return 0;
    }
  }
  verified = to;
  return 1;
}

int dropSupplementaryGroups() {
  return ::setgroups(0, nullptr) == 0 ? 1 : 0;
}

int becomeForGood(Ids to) {
  verified.reset();
  // Straight system calls: the library's own versions take locks, which a child that shares memory must not.
  if (::syscall(SYS_geteuid) != 0) static_cast<void>(::syscall(SYS_setresuid, -1, 0, -1));
  if (::syscall(SYS_geteuid) == 0 && ::syscall(SYS_setgroups, 0, nullptr) != 0) return 0;
  if (::syscall(SYS_setresgid, to.group, to.group, to.group) != 0) return 0;
  if (::syscall(SYS_setresuid, to.user, to.user, to.user) != 0) return 0;
  uid_t realUser = 0, user = 0, savedUser = 0;
  gid_t realGroup = 0, group = 0, savedGroup = 0;
  if (::syscall(SYS_getresuid, &realUser, &user, &savedUser) != 0) return 0;
  if (::syscall(SYS_getresgid, &realGroup, &group, &savedGroup) != 0) return 0;
  const bool became = realUser == to.user && user == to.user && savedUser == to.user && realGroup == to.group &&
                      group == to.group && savedGroup == to.group;
  const bool canGoBack = to.user != 0 && ::syscall(SYS_setresuid, -1, 0, -1) == 0;
  return became && !canGoBack ? 1 : 0;
}

}  // namespace zvtaskq
