// User and group ids, and the only code that changes the process's own. Nothing here logs: the log itself needs it.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

#include "core/sys/clock_tick.h"

namespace zvtaskq {

/// The panel's own Unix user, owner of its data files and logs.
inline constexpr const char* kPanelUser = "zvadmin";
/// The id that stands for an unknown user or group.
inline constexpr unsigned kUnknownId = 9999;

struct Ids {
  uid_t user;
  gid_t group;
  bool operator==(const Ids&) const = default;
};
inline constexpr Ids kRootIds{0, 0};

/// The file of the system's accounts, for who remembers what it says. It is looked at once in a tick of the coarse
/// clock: a tally asks a hundred times an account.
class AccountsFile {
 public:
  /// Whether it has changed since the last time this was asked.
  bool hasChanged();

 private:
  struct stat seen_ {};
  ClockTick tick_;
};

/// The ids the process works under now, and those it was started with.
Ids effectiveIds();
Ids realIds();

/// "root" gives 0, else the account's user id, `kUnknownId` when unknown or null. Found ids are remembered for as
/// long as the account file stays the same.
unsigned getUID(const char* name);
/// "root" gives 0; with `fromGroupDatabase` the id of the group of that name, otherwise the primary group of the
/// account of that name; `kUnknownId` when unknown or null.
unsigned getGID(const char* name, int fromGroupDatabase);
/// An account's user id and primary group, each `kUnknownId` when unknown.
Ids idsOf(const char* name);
/// The account name of a user id, empty when unknown.
std::string getUIDname(unsigned uid);
/// The ids of "nobody", looked up once.
Ids nobodyIds();

/// Makes `to` the effective identity: root first, then the group, then the user, and verifies the outcome.
/// 0 (errno set) when it is not exactly that; the process then has whatever identity it got to, and the caller
/// decides. The real ids never change, so a process started by root can always come back.
[[nodiscard]] int switchEffective(Ids to);

/// Gives up every supplementary group. 0 (errno set) when the system refuses.
[[nodiscard]] int dropSupplementaryGroups();

/// For a child about to start a program: no supplementary groups, then `to` as real, effective and saved ids, which
/// cannot be undone, and a check that it is so. Async-signal-safe. 0 when anything of it failed.
[[nodiscard]] int becomeForGood(Ids to);

}  // namespace zvtaskq
