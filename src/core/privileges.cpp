#include "core/privileges.h"

#include <cerrno>
#include <cstring>

#include "core/log.h"

namespace zvtaskq {

namespace {

bool startedByRoot() { return realIds().user == 0; }

/// Switches and, when that fails, says so and drops to nobody: an operation meant for one identity must not go on
/// under a stronger one.
int switchOrDrop(Ids to) {
  if (switchEffective(to)) return 1;
  if (!startedByRoot()) return 0;
  errorLog("Unable to switch to uid %u gid %u: %s", to.user, to.group, std::strerror(errno));
  if (!(to == nobodyIds())) static_cast<void>(switchEffective(nobodyIds()));
  return 0;
}

bool isUnknown(const char* what, const char* text, unsigned id, int logErrors) {
  if (id != kUnknownId) return false;
  if (logErrors) errorLog("Sys:setUserPriv(%s):%s==%d", text, what, static_cast<int>(id));
  debug(500, "Sys:setUserPriv(%s):%s==%d", text, what, static_cast<int>(id));
  return true;
}

}  // namespace

int setRootPriv() { return switchOrDrop(kRootIds); }

int setNoPriv() { return switchOrDrop(nobodyIds()); }

int setUserPriv(const char* user, int logErrors) {
  const char* name = user == nullptr ? "" : user;
  const unsigned uid = getUID(user);
  if (isUnknown("uid", name, uid, logErrors)) return 0;
  const unsigned gid = getGID(user, 0);
  if (isUnknown("gid", name, gid, logErrors)) return 0;
  return switchOrDrop({uid, gid});
}

int setUGPriv(const char* user, const char* group) {
  const unsigned uid = getUID(user);
  if (uid == kUnknownId) {
    errorLog("Sys:setUGPriv:uid==%d", static_cast<int>(uid));
    return 0;
  }
  const unsigned gid = getGID(group, 0);
  if (gid == kUnknownId) {
    errorLog("Sys:setUGPriv:gid==%d", static_cast<int>(gid));
    return 0;
  }
  return switchOrDrop({uid, gid});
}

int setUGPriv(unsigned uid, unsigned gid) { return switchOrDrop({uid, gid}); }

AsUser::AsUser(const char* user) : taken_(setUserPriv(user, 1) != 0) {
  if (!taken_) setNoPriv();
}

AsOwner::AsOwner(const char* user, const char* group) : switches_(user != nullptr) {
  if (!switches_) return;
  const int taken = group == nullptr ? setUserPriv(user, 1) : setUGPriv(user, group);
  if (!taken) setNoPriv();
}

KeepPrivileges::~KeepPrivileges() { switchOrDrop(before_); }

}  // namespace zvtaskq
