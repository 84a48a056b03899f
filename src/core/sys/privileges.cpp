#include "core/sys/privileges.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/sys/log.h"

namespace zvtaskq {

namespace {

bool startedByRoot() {
  return realIds().user == 0;
}

/// Switches and, when that fails, says so and drops to nobody: an operation meant for one identity must not go on
/// under a stronger one. A process that cannot even drop has no safe way on.
int switchOrDrop(Ids to) {
  if (switchEffective(to)) return 1;
  if (!startedByRoot()) return 0;
  errorLog("Unable to switch to uid %u gid %u: %s", to.user, to.group, std::strerror(errno));
  if (switchEffective(nobodyIds()) || effectiveIds().user != 0 || to.user == 0) return 0;
  errorLog("Unable to give up root, leaving");
  ::_exit(1);
}

int refuseUnknown(const char* format, const char* user, int logErrors) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  if (logErrors) errorLog(format, user, static_cast<int>(kUnknownId));
  debug(500, format, user, static_cast<int>(kUnknownId));
#pragma GCC diagnostic pop
  return 0;
}

}  // namespace

int setRootPriv() {
  return switchOrDrop(kRootIds);
}

int setNoPriv() {
  return switchOrDrop(nobodyIds());
}

int setUserPriv(const char* user, int logErrors) {
  const char* name = user == nullptr ? "" : user;
  const unsigned uid = getUID(user);
  if (uid == kUnknownId) return refuseUnknown("Sys:setUserPriv(%s):uid==%d", name, logErrors);
  const unsigned gid = getGID(user, 0);
  if (gid == kUnknownId) return refuseUnknown("Sys:setUserPriv(%s):gid==%d", name, logErrors);
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

int setUGPriv(unsigned uid, unsigned gid) {
  return switchOrDrop({uid, gid});
}

IdentityGuard::~IdentityGuard() {
  switchOrDrop(found_);
}

void IdentityGuard::took(int outcome) {
  taken_ = outcome != 0;
  if (!taken_) setNoPriv();
}

AsOwner::AsOwner(const char* user, const char* group) {
  if (user == nullptr) return;
  took(group == nullptr ? setUserPriv(user, 1) : setUGPriv(user, group));
}

}  // namespace zvtaskq
