#include "core/tree/ownership.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/random.h"
#include "core/sys/sys.h"
#include "core/text/text.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kRandomNameLength = 24;

/// What may be given away, and to whom.
struct Gift {
  const char* path;
  Ids to;
  bool checkHardLink;
  int mustBeUid;
  int mustBeGid;

  bool wantsOwner() const { return mustBeUid != -1 || mustBeGid != -1; }
  bool belongsRight(const struct stat& what) const {
    return !wantsOwner() || (mustBeUid != -1 && what.st_uid == static_cast<uid_t>(mustBeUid)) ||
           (mustBeGid != -1 && what.st_gid == static_cast<gid_t>(mustBeGid));
  }
  /// Refuses a file with more names than one, in words.
  int refusesLinks(const struct stat& what) const {
    if (!checkHardLink || !S_ISREG(what.st_mode) || what.st_nlink < 2) return 0;
    refusalLog(10, "HardLink found on %s (%d links).  Was attempting to be reset to owner UID(%d) GID(%d)", path,
               static_cast<int>(what.st_nlink), static_cast<int>(to.user), static_cast<int>(to.group));
    return 1;
  }
};

int changeFailed(const Gift& gift) {
  errorLog("setOwner(%s): unable to set the owner to uid=%d gid=%d: %s", gift.path, static_cast<int>(gift.to.user),
           static_cast<int>(gift.to.group), std::strerror(errno));
  return 0;
}

/// Changes what is pinned, once it has been looked at: no name is used any more.
int giveChecked(const Gift& gift, const Descriptor& pinned) {
  struct stat what {};
  if (!pinned || sys::fstat(pinned.get(), what) != 0) return changeFailed(gift);
  if (gift.refusesLinks(what)) return 0;
  if (!gift.belongsRight(what)) {
    refusalLog(10, "setOwner(%s): owner of file is not uid=%d or gid=%d AFTER the rename, so will not chown.",
               gift.path, gift.mustBeUid, gift.mustBeGid);
    return 0;
  }
  return sys::chownPinned(pinned.get(), gift.to.user, gift.to.group) == 0 ? 1 : changeFailed(gift);
}

Descriptor pin(int folder, const char* name) {
  return Descriptor(sys::openat(folder, name, O_PATH | O_NOFOLLOW));
}

int giveUnderSecretName(const Gift& gift) {
  const PathParts place(gift.path);
  const std::string secret = joined(".", getRandText(kRandomNameLength));
  const std::string secretPath = joined(place.folder, "/", secret);
  const Descriptor folder(sys::open(place.folder.c_str(), O_PATH | O_DIRECTORY));
  if (!folder || sys::renameat(folder.get(), place.name.c_str(), folder.get(), secret.c_str()) != 0) {
    errorLogAndDebug(10, "setOwner(secure_chown): error renaming %s to %s: %s", gift.path, secretPath.c_str(),
                     std::strerror(errno));
    return 0;
  }
  const int given = giveChecked(gift, pin(folder.get(), secret.c_str()));
  if (sys::renameat(folder.get(), secret.c_str(), folder.get(), place.name.c_str()) == 0) return given;
  errorLogAndDebug(10, "setOwner(secure_chown): error renaming %s back to %s: %s", secretPath.c_str(), gift.path,
                   std::strerror(errno));
  return 0;
}

/// The ids of two names; 0 with an error-log line when one is unknown.
int idsFor(const char* path, const char* user, const char* group, Ids& ids) {
  ids.user = getUID(user);
  ids.group = getGID(group, 0);
  if (ids.group == kUnknownId) ids.group = getGID(group, 1);
  if (ids.user != kUnknownId && ids.group != kUnknownId) return 1;
  errorLog("setOwner(%s): unknown user or group: %s:%s", path == nullptr ? "" : path, user == nullptr ? "" : user,
           group == nullptr ? "" : group);
  return 0;
}

int giveTree(const char* path, Ids to, bool checkHardLink) {
  int allGiven = 1;
  const auto give = [&](const TreeEntry& entry) {
    if (entry.leaving) return 1;
    const Gift gift{entry.path.c_str(), to, checkHardLink, -1, -1};
    if (checkHardLink) {
      if (!giveChecked(gift, pin(entry.folder, entry.name))) allGiven = 0;
    } else if (sys::chownNoFollow(entry.folder, entry.name, to.user, to.group) != 0) {
      allGiven = changeFailed(gift);
    }
    return 1;
  };
  if (path != nullptr && walkTree(path, give)) return allGiven;
  errorLog("setOwnerRecursive(%s): not all of it could be reached: %s", path == nullptr ? "" : path,
           std::strerror(errno));
  return 0;
}

}  // namespace

int setOwner(const char* path, unsigned uid, unsigned gid, int checkHardLink, int secureRename, int mustBeUid,
             int mustBeGid) {
  const Gift gift{path == nullptr ? "" : path, {uid, gid}, checkHardLink != 0, mustBeUid, mustBeGid};
  const Descriptor pinned = pin(AT_FDCWD, gift.path);
  struct stat what {};
  if (!pinned || sys::fstat(pinned.get(), what) != 0) return changeFailed(gift);
  if (gift.refusesLinks(what)) return 0;
  if (!gift.belongsRight(what)) {
    debug(2500, "setOwner(%s): owner of file is not uid=%d or gid=%d, so will not chown.", path, mustBeUid, mustBeGid);
    return 0;
  }
  if (secureRename) return giveUnderSecretName(gift);
  return sys::chownPinned(pinned.get(), uid, gid) == 0 ? 1 : changeFailed(gift);
}

int setOwner(const char* path, const char* user, const char* group, int checkHardLink, int secureRename, int mustBeUid,
             int mustBeGid) {
  Ids ids{};
  if (!idsFor(path, user, group, ids)) return 0;
  return setOwner(path, ids.user, ids.group, checkHardLink, secureRename, mustBeUid, mustBeGid);
}

int setOwnerRecursive(const char* path, unsigned uid, unsigned gid) {
  return giveTree(path, {uid, gid}, false);
}

int setOwnerRecursive(const char* path, const char* user, const char* group) {
  Ids ids{};
  return idsFor(path, user, group, ids) ? giveTree(path, ids, false) : 0;
}

int setOwnerRecursive_secure(const char* path, const char* user, const char* group) {
  Ids ids{};
  return idsFor(path, user, group, ids) ? giveTree(path, ids, true) : 0;
}

int copy_dir_permission(const char* from, const char* to, int modeOnly) {
  const Descriptor source = openFolder(from);
  const Descriptor target = openFolder(to);
  struct stat what {};
  // The owner first: a change of owner may take permission bits away.
  if (source && target && sys::fstat(source.get(), what) == 0 &&
      (modeOnly || sys::fchown(target.get(), what.st_uid, what.st_gid) == 0) &&
      sys::fchmod(target.get(), what.st_mode & 07777) == 0) {
    return 1;
  }
  errorLog("copy_dir_permission(%s, %s): %s", from, to, std::strerror(errno));
  return 0;
}

}  // namespace zvtaskq
