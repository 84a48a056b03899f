#include "core/record/list_file.h"
#include "services/database/account_users.h"
#include "services/database/locks.h"
#include "services/database/wishes.h"

namespace zvtaskq {

namespace {

constexpr DatabaseTime kDropTime{240, 1800};

/// What is to go: the request, and what lists call it.
struct Drop {
  std::vector<DatabaseCall> calls;
  std::vector<std::string> names;
};

/// Users first: what they have running would keep their tables busy.
Drop dropsOf(const std::vector<DatabaseUser>& users, const std::vector<std::string>& databases) {
  Drop drop;
  for (const DatabaseUser& user : users) {
    drop.calls.push_back(user.call("drop"));
    drop.names.push_back(user.text());
  }
  for (const std::string& database : databases) {
    drop.calls.push_back(DatabaseCall{{"command", "drop"}, {"database", database}});
    drop.names.push_back(database);
  }
  return drop;
}

}  // namespace

int dropDatabases(const char* account, const DatabaseOwners& owners, ListFile& dropped, ListFile& stayed,
                  Text& result) {
  if (!hasDatabases()) return setDatabaseWish(account, DatabaseWish::none);
  std::vector<DatabaseUser> users;
  std::vector<std::string> databases;
  if (!findUsers(account, owners, users, &databases, result)) return 0;
  Drop drop = dropsOf(users, databases);
  int outcome = askDatabaseServer(drop.calls, kDropTime, result);
  for (std::size_t i = 0; i < drop.calls.size(); ++i) {
    const DatabaseCall& call = drop.calls[i];
    (call.isDone ? dropped : stayed).addElement(drop.names[i].c_str());
    if (call.isDone) continue;
    outcome = 0;
    if (call.isAnswered) addResult(result, drop.names[i], ": ", call.error);
  }
  return setDatabaseWish(account, DatabaseWish::none) && outcome;
}

int databasesThatWouldBelongTo(const char* newAccount, const ListFile& accounts, ListFile& found, Text& result) {
  if (!hasDatabases()) return 1;
  const DatabaseOwners owners(accounts, newAccount);
  std::vector<DatabaseUser> users;
  std::vector<std::string> databases;
  if (!findUsers(newAccount, owners, users, &databases, result)) return 0;
  for (const std::string& database : databases) found.addElement(database.c_str());
  for (const DatabaseUser& user : users) found.addElement(user.text().c_str());
  return 1;
}

}  // namespace zvtaskq
