#include "services/database/account_users.h"

#include <algorithm>

#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

constexpr DatabaseTime kNamesTime{30, 90};

}  // namespace

std::string DatabaseUser::text() const {
  return escapedSparingly(joined(name, "@", host));
}

DatabaseCall DatabaseUser::call(const char* command) const {
  return DatabaseCall{{"command", command}, {"user", name}, {"host", host}};
}

int findUsers(const char* account, const DatabaseOwners& owners, std::vector<DatabaseUser>& users,
              std::vector<std::string>* databases, Text& result) {
  std::vector<DatabaseCall> calls;
  calls.push_back(DatabaseCall{{"command", "users"}, {"account", account}});
  calls.front().take = [&](const ConfigFile& row) {
    DatabaseUser user{joined(row.getValue("user")), joined(row.getValue("host")), row.isValue("locked", "yes") != 0,
                      row.isValue("marked", "yes") != 0};
    if (owners.ofUser(user.name) == account) users.push_back(std::move(user));
  };
  if (databases != nullptr) {
    calls.push_back(DatabaseCall{{"command", "databases"}, {"account", account}});
    calls.back().take = [&](const ConfigFile& row) {
      std::string name = joined(row.getValue("database"));
      if (owners.mayOwn(account, name)) databases->push_back(std::move(name));
    };
  }
  if (!askDatabaseServer(calls, kNamesTime, result)) return 0;
  const auto refused = std::find_if(calls.begin(), calls.end(), [](const DatabaseCall& call) { return !call.isDone; });
  return refused == calls.end() ? 1 : fail(result, refused->error);
}

}  // namespace zvtaskq
