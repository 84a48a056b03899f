// Taking on an identity, and the guards that do it for the length of a block.
//
// The process is root; between operations its effective identity is "nobody". A guard takes an identity when it is
// made and leaves the process at nobody when it goes (`KeepPrivileges`: at what it was). A switch that fails ends at
// nobody too, never at root by accident, and is logged; a process that cannot even drop root leaves. In a process that
// was not started by root nothing can be switched: the guards then do nothing.
#pragma once

#include "core/identity.h"

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

/// Root, for the one access that needs it.
class AsRoot {
 public:
  AsRoot() : taken_(setRootPriv() != 0) {}
  ~AsRoot() { setNoPriv(); }
  AsRoot(const AsRoot&) = delete;
  AsRoot& operator=(const AsRoot&) = delete;
  /// Whether the process now really is root.
  bool taken() const { return taken_; }

 private:
  bool taken_;
};

/// A user by name, with its own primary group.
class AsUser {
 public:
  explicit AsUser(const char* user);
  ~AsUser() { setNoPriv(); }
  AsUser(const AsUser&) = delete;
  AsUser& operator=(const AsUser&) = delete;
  bool taken() const { return taken_; }

 private:
  bool taken_;
};

/// The owner of a data file: `user`, with the primary group of the account named `group` when one is given. A null
/// user means that no identity is taken, neither now nor at the end.
class AsOwner {
 public:
  AsOwner(const char* user, const char* group);
  ~AsOwner() {
    if (switches_) setNoPriv();
  }
  AsOwner(const AsOwner&) = delete;
  AsOwner& operator=(const AsOwner&) = delete;

 private:
  bool switches_;
};

/// Remembers the effective identity and puts it back at the end, whatever the block switched to.
class KeepPrivileges {
 public:
  KeepPrivileges() : before_(effectiveIds()) {}
  ~KeepPrivileges();
  KeepPrivileges(const KeepPrivileges&) = delete;
  KeepPrivileges& operator=(const KeepPrivileges&) = delete;

 private:
  Ids before_;
};

}  // namespace zvtaskq
