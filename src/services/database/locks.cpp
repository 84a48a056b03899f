#include "services/database/locks.h"

#include "account/model/account_lock.h"
#include "account/model/account_record.h"
#include "core/panel/marks.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "services/database/account_users.h"
#include "services/database/wishes.h"

namespace zvtaskq {

namespace {

constexpr DatabaseTime kLockTime{30, 90};
constexpr const char* kMark = "database_wishes";

enum class Outcome { done, refused, unanswered };
/// Whose work the marks before hashes are, where nothing is known of the time before the suspension.
enum class Marks { ofBefore, ofTheSuspension };

/// Puts the requests to the server.
Outcome carryOutAll(std::vector<DatabaseCall> calls, Text& result) {
  if (!askDatabaseServer(calls, kLockTime, result)) return Outcome::unanswered;
  Outcome outcome = Outcome::done;
  for (const DatabaseCall& call : calls) {
    if (call.isDone) continue;
    addResult(result, call.error);
    outcome = Outcome::refused;
  }
  return outcome;
}

/// Notes which users were locked before the suspension, unless that is known. What is known is in `kept` then.
int keepBefore(const char* account, const std::vector<DatabaseUser>& users, Marks marks, LockedBefore& before,
               ListFile& kept) {
  if (before.read(account, kept)) return 1;
  for (const DatabaseUser& user : users) {
    const bool wasMarked = user.isMarked && marks == Marks::ofBefore;
    if (user.isLocked || wasMarked) kept.addElement(user.text().c_str());
  }
  return before.keep(account, kept);
}

Outcome lockUsers(const char* account, const DatabaseOwners& owners, LockedBefore& before, Text& result,
                  Marks marks = Marks::ofBefore) {
  std::vector<DatabaseUser> users;
  if (!findUsers(account, owners, users, nullptr, result)) return Outcome::unanswered;
  ListFile kept(nullptr);
  if (!keepBefore(account, users, marks, before, kept)) {
    addResult(result, "Unable to keep which database users of ", account, " were locked before");
    return Outcome::refused;
  }
  std::vector<DatabaseCall> calls;
  for (const DatabaseUser& user : users) {
    const bool isConverted = marks == Marks::ofTheSuspension && user.isMarked;
    if (isConverted && !kept.existElement(user.text().c_str())) calls.push_back(user.call("unmark"));
    // One that is locked already may have been when the server went, with its sessions left.
    calls.push_back(user.call("lock"));
  }
  return carryOutAll(std::move(calls), result);
}

Outcome unlockUsers(const char* account, const DatabaseOwners& owners, const ListFile& stay, Text& result) {
  std::vector<DatabaseUser> users;
  if (!findUsers(account, owners, users, nullptr, result)) return Outcome::unanswered;
  std::vector<DatabaseCall> calls;
  for (const DatabaseUser& user : users) {
    if (user.isLocked && !stay.existElement(user.text().c_str())) calls.push_back(user.call("unlock"));
  }
  return carryOutAll(std::move(calls), result);
}

/// Ends a call in the documented way.
int conclude(Outcome outcome, const char* account, DatabaseWish wish, const ListFile* stay, Text& words, Text& result) {
  if (outcome == Outcome::done) return setDatabaseWish(account, DatabaseWish::none);
  if (outcome == Outcome::refused) {
    result.append(words.view());
    return 0;
  }
  errorLog("The database users of %s are %s when the server answers: %s", account,
           wish == DatabaseWish::lock ? "locked" : "unlocked", words.orEmpty());
  if (setDatabaseWish(account, wish, stay)) return 1;
  return fail(result, "Unable to note what waits for the database server");
}

/// An unlock that waits has not been done: what was locked before it is what was locked before the suspension to come.
int takeBackUnlock(const char* account, LockedBefore& before) {
  ListFile stay(nullptr);
  if (!hasDatabaseWishes() || readDatabaseWish(account, stay) != DatabaseWish::unlock) return 1;
  ListFile kept(nullptr);
  return (before.read(account, kept) || before.keep(account, stay)) && setDatabaseWish(account, DatabaseWish::none);
}

Outcome carryOut(const char* account, const DatabaseOwners& owners, LockedBefore& before, Text& result) {
  ListFile stay(nullptr);
  const DatabaseWish wish = readDatabaseWish(account, stay);
  if (wish == DatabaseWish::none) return Outcome::done;
  const Outcome outcome = wish == DatabaseWish::lock ? lockUsers(account, owners, before, result)
                                                     : unlockUsers(account, owners, stay, result);
  if (outcome == Outcome::done && setDatabaseWish(account, DatabaseWish::none)) {
    systemLog("The database users of %s are %s, as was noted", account,
              wish == DatabaseWish::lock ? "locked" : "unlocked");
  }
  return outcome;
}

}  // namespace

int lockDatabases(const char* account, const DatabaseOwners& owners, LockedBefore& before, Text& result) {
  if (!hasDatabases()) return 1;
  if (!takeBackUnlock(account, before)) {
    return fail(result, "Unable to keep which database users of ", account, " were locked before");
  }
  Text words;
  const Outcome outcome = lockUsers(account, owners, before, words);
  return conclude(outcome, account, DatabaseWish::lock, nullptr, words, result);
}

int unlockDatabases(const char* account, const DatabaseOwners& owners, LockedBefore& before, Text& result) {
  ListFile stay(nullptr);
  // Without it nobody was locked, or not yet.
  if (!before.read(account, stay)) return setDatabaseWish(account, DatabaseWish::none);
  if (!hasDatabases()) return 1;
  Text words;
  const Outcome outcome = unlockUsers(account, owners, stay, words);
  return conclude(outcome, account, DatabaseWish::unlock, &stay, words, result);
}

int convertDatabaseLocks(const char* account, const DatabaseOwners& owners, LockedBefore& before, bool& answers,
                         Text& result) {
  if (!hasDatabases()) return 1;
  if (!takeBackUnlock(account, before)) {
    return fail(result, "Unable to keep which database users of ", account, " were locked before");
  }
  const Outcome outcome = lockUsers(account, owners, before, result, Marks::ofTheSuspension);
  answers = outcome != Outcome::unanswered;
  return outcome == Outcome::done && setDatabaseWish(account, DatabaseWish::none);
}

void carryOutDatabaseWishes(LockedBefore& before) {
  if (!hasDatabases() || !hasDatabaseWishes()) return;
  std::vector<std::string> waiting;
  ListFile accounts(nullptr);
  if (!listDatabaseWishes(waiting) || !listAccounts(accounts)) return;
  const DatabaseOwners owners(accounts);
  for (const std::string& account : waiting) {
    if (!owners.isAccount(account) && setDatabaseWish(account.c_str(), DatabaseWish::none)) continue;
    const AccountLock lock(account.c_str(), 0);
    if (!lock.held()) continue;
    Text result;
    const Outcome outcome = carryOut(account.c_str(), owners, before, result);
    if (outcome != Outcome::done && isDueAgain(kMark, result.view())) {
      errorLog("What waits for the database server cannot be done yet, for %s: %s", account.c_str(), result.orEmpty());
    }
    if (outcome == Outcome::unanswered) return;
  }
}

}  // namespace zvtaskq
