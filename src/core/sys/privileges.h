// Taking on an identity, and the guards that do it for the length of a block.
//
// The process is root; between operations its effective identity is "nobody". A guard takes an identity when it is
// made and gives back the one it found when it goes, so guards nest: what runs inside a guarded block may take any
// identity of its own. A step that starts at nobody therefore ends there. A switch that fails ends at nobody, on the
// way in and on the way out, never at root by accident, and is logged; a process that cannot even drop root leaves. In
// a process that was not started by root nothing can be switched: the guards then do nothing.
#pragma once

#include "core/sys/identity.h"

namespace zvtaskq {

/// Effective group 0, then effective user 0. 1 on success.
int setRootPriv();
/// The group and user of "nobody". 1 on success.
int setNoPriv();
/// The user's primary group and the user. An unknown user: error log "Sys:setUserPriv(%s):uid==%d" (when
/// `logErrors`) and debug (level 500), 0, and nothing is switched; an unknown group likewise.
int setUserPriv(const char* user, int logErrors);
/// The user, and the primary group of the account named `group`. Unknown: error log "Sys:setUGPriv:uid==%d" or
/// "Sys:setUGPriv:gid==%d", 0, nothing switched.
int setUGPriv(const char* user, const char* group);
/// By number. 1 on success.
int setUGPriv(unsigned uid, unsigned gid);

/// What all guards share: the identity they found, which they give back.
class IdentityGuard {
 public:
  IdentityGuard(const IdentityGuard&) = delete;
  IdentityGuard& operator=(const IdentityGuard&) = delete;
  /// Whether the process really took the identity; when not, it is nobody for the length of the block.
  bool taken() const { return taken_; }

 protected:
  IdentityGuard() : found_(effectiveIds()) {}
  ~IdentityGuard();
  /// Notes how the switch went, and drops to nobody when it failed.
  void took(int outcome);

 private:
  Ids found_;
  bool taken_ = true;
};

/// Root, for the one access that needs it.
class AsRoot : public IdentityGuard {
 public:
  AsRoot() { took(setRootPriv()); }
};

/// A user by name, with its own primary group (null or unknown: not taken, as `setUserPriv` says), or any ids.
class AsUser : public IdentityGuard {
 public:
  explicit AsUser(const char* user) { took(setUserPriv(user, 1)); }
  explicit AsUser(Ids ids) { took(setUGPriv(ids.user, ids.group)); }
};

/// The owner of a data file: `user`, with the primary group of the account named `group` when one is given. A null
/// user means that the identity stays as it is.
class AsOwner : public IdentityGuard {
 public:
  AsOwner(const char* user, const char* group);
};

}  // namespace zvtaskq
