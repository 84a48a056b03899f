// An account's users at the database server: locked while it is suspended, dropped with its databases when it goes.
//
// The callers hold the account (account/model/account_lock.h). All work under any identity and leave nobody's.
#pragma once

#include "services/database/owners.h"

namespace zvtaskq {

class ListFile;
class Text;

/// Where a suspension keeps which users were locked before it, so that they stay locked after it. account/suspension
/// has one over the account's "suspended.list". A user is a text without spaces and line breaks, such as
/// "bob_shop@%25".
class LockedBefore {
 public:
  LockedBefore() = default;
  LockedBefore(const LockedBefore&) = delete;
  LockedBefore& operator=(const LockedBefore&) = delete;
  virtual ~LockedBefore() = default;

  /// Keeps the users, of whom there may be none, before the first of the account's users is locked. 0 when they cannot
  /// be kept: then nothing is locked.
  [[nodiscard]] virtual int keep(const char* account, const ListFile& users) = 0;
  /// Adds those kept to `users`. False when this suspension has kept none yet: then it has not locked anybody.
  [[nodiscard]] virtual bool read(const char* account, ListFile& users) = 0;
};

/// Locks the account's users and ends what they have running. When the server does not answer, this is noted for
/// `carryOutDatabaseWishes`, with one error-log line, and is no failure; nor is a panel without databases. May be
/// repeated. 0 with words when the server refuses, and when what is to be kept cannot be.
[[nodiscard]] int lockDatabases(const char* account, const DatabaseOwners& owners, LockedBefore& before, Text& result);
/// The reverse: frees all but those that were locked before. What was kept is not asked for again afterwards, also when
/// the server does not answer.
[[nodiscard]] int unlockDatabases(const char* account, const DatabaseOwners& owners, LockedBefore& before,
                                  Text& result);
/// Brings a suspended account's users to today's way: those whose hash an older suspension has marked with "!" are
/// freed of the mark and locked instead, and so are all others. One that the suspension found marked already keeps its
/// mark. Changes nothing and gives 0 with words when the server does not answer, which `answers` then tells: this is
/// not done later. May be repeated.
[[nodiscard]] int convertDatabaseLocks(const char* account, const DatabaseOwners& owners, LockedBefore& before,
                                       bool& answers, Text& result);
/// Does what could not be done before. Costs one look at the file system when there is nothing. An account that another
/// process works on waits for the next time. While the server does not answer, the error log says so once a day.
void carryOutDatabaseWishes(LockedBefore& before);

/// Drops the account's users and databases. `dropped` and `stayed` get the names, users as in `LockedBefore`. 0 with
/// words when something stayed, or when the server does not answer and nobody knows what did: this is not done later.
[[nodiscard]] int dropDatabases(const char* account, const DatabaseOwners& owners, ListFile& dropped, ListFile& stayed,
                                Text& result);
/// The databases and users that an account of that name would find itself the owner of: it must not be made while
/// there are any. 0 with words when the server does not answer.
[[nodiscard]] int databasesThatWouldBelongTo(const char* newAccount, const ListFile& accounts, ListFile& found,
                                             Text& result);

}  // namespace zvtaskq
