#include "account/lifecycle/account_databases.h"

#include <string_view>

#include "account/model/account_record.h"
#include "account/model/suspension_notes.h"
#include "core/record/list_file.h"
#include "services/database/locks.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kDatabase = "database ";

/// Which users were locked before a suspension stands in its notes.
class NotedUsers : public LockedBefore {
 public:
  int keep(const char* account, const ListFile& users) override {
    SuspensionNotes notes(suspensionFile(account));
    Text why;
    if (!notes.read(why)) return 0;
    std::erase_if(notes.blocked, [](const std::string& name) { return name.starts_with(kDatabase); });
    for (int i = 0; i < users.size(); ++i) notes.blocked.insert(joined(kDatabase, users.getElementAt(i)));
    notes.hasDatabases = true;
    return notes.write(why);
  }

  bool read(const char* account, ListFile& users) override {
    SuspensionNotes notes(suspensionFile(account));
    Text why;
    if (!notes.read(why) || !notes.hasDatabases) return false;
    for (const std::string& name : notes.blocked) {
      if (name.starts_with(kDatabase)) users.addElement(name.c_str() + kDatabase.size());
    }
    return true;
  }
};

/// Calls `work` with the rule of whose a database is.
template <class Work>
int withOwners(Text& result, Work work) {
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) return fail(result, "Unable to read the accounts");
  return work(accounts, DatabaseOwners(accounts));
}

}  // namespace

int lockServices(const char* account, Text& result) {
  NotedUsers before;
  return withOwners(result, [&](const ListFile&, const DatabaseOwners& owners) {
    return lockDatabases(account, owners, before, result);
  });
}

int unlockServices(const char* account, Text& result) {
  NotedUsers before;
  // Without what was noted nobody could tell who is to be let in.
  SuspensionNotes notes(suspensionFile(account));
  if (!notes.read(result)) return 0;
  return withOwners(result, [&](const ListFile&, const DatabaseOwners& owners) {
    return unlockDatabases(account, owners, before, result);
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
  NotedUsers before;
  carryOutDatabaseWishes(before);
}

}  // namespace zvtaskq
