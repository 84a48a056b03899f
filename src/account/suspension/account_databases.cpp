#include "account/suspension/account_databases.h"

#include <string_view>

#include "account/model/account_record.h"
#include "account/model/suspension_notes.h"
#include "core/record/list_file.h"
#include "services/database/locks.h"

namespace zvtaskq {

namespace {

/// Which users were locked before a suspension stands in its notes: those at hand, or those of the account's file.
class NotedUsers : public LockedBefore {
 public:
  explicit NotedUsers(SuspensionNotes* notes) : notes_(notes) {}

  int keep(const char* account, const ListFile& users) override {
    Text why;
    return with(account, why, [&](SuspensionNotes& notes) {
      notes.lockedDatabaseUsers.emplace();
      for (int i = 0; i < users.size(); ++i) notes.lockedDatabaseUsers->insert(users.getElementAt(i));
      return notes.write(why);
    });
  }

  bool read(const char* account, ListFile& users) override {
    Text why;
    return with(account, why, [&](SuspensionNotes& notes) {
             if (!notes.lockedDatabaseUsers) return 0;
             for (const std::string& name : *notes.lockedDatabaseUsers) users.addElement(name.c_str());
             return 1;
           }) != 0;
  }

 private:
  template <class Work>
  int with(const char* account, Text& why, Work work) {
    if (notes_ != nullptr) return work(*notes_);
    SuspensionNotes notes(suspensionFile(account));
    return notes.read(why) && work(notes);
  }

  SuspensionNotes* notes_;
};

/// Calls `work` with the rule of whose a database is.
template <class Work>
int withOwners(Text& result, Work work) {
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) return fail(result, "Unable to read the accounts");
  return work(accounts, DatabaseOwners(accounts));
}

}  // namespace

int lockServices(const char* account, SuspensionNotes& notes, Text& result) {
  NotedUsers before(&notes);
  return withOwners(result, [&](const ListFile&, const DatabaseOwners& owners) {
    return lockDatabases(account, owners, before, result);
  });
}

int unlockServices(const char* account, SuspensionNotes& notes, Text& result) {
  NotedUsers before(&notes);
  return withOwners(result, [&](const ListFile&, const DatabaseOwners& owners) {
    return unlockDatabases(account, owners, before, result);
  });
}

int convertSuspendedDatabases(const char* account, SuspensionNotes& notes, bool& answers, Text& result) {
  NotedUsers before(&notes);
  return withOwners(result, [&](const ListFile&, const DatabaseOwners& owners) {
    return convertDatabaseLocks(account, owners, before, answers, result);
  });
}

int dropDatabasesOf(const char* account, Text& result) {
  ListFile dropped(nullptr), stayed(nullptr);
  return withOwners(result, [&](const ListFile&, const DatabaseOwners& owners) {
    const int whole = dropDatabases(account, owners, dropped, stayed, result);
    for (int i = 0; i < stayed.size(); ++i)
      addResult(result, "The database or user ", stayed.getElementAt(i), " stayed");
    return whole;
  });
}

int hasNoDatabases(const char* account, Text& result) {
  return withOwners(result, [&](const ListFile& accounts, const DatabaseOwners&) {
    ListFile found(nullptr);
    if (!databasesThatWouldBelongTo(account, accounts, found, result)) return 0;
    if (found.size() == 0) return 1;
    return fail(result, "The database or user ", found.getElementAt(0), " would belong to ", account);
  });
}

void finishDatabaseWork() {
  NotedUsers before(nullptr);
  carryOutDatabaseWishes(before);
}

}  // namespace zvtaskq
