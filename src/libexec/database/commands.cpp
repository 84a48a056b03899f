#include "libexec/database/commands.h"

#include <cstring>

#include "core/text/post_string.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

/// Names compare byte by byte: by the columns' own rules a database "Bob_x" would be the same as "bob_x".
#define OF_USERS(column) "BINARY " column " NOT IN ('information_schema', 'mysql', 'performance_schema', 'sys')"

constexpr const char* kSizes =
    "SELECT BINARY name, SUM(bytes) FROM ("
    "SELECT SCHEMA_NAME AS name, 0 AS bytes FROM information_schema.SCHEMATA WHERE " OF_USERS("SCHEMA_NAME") " UNION ALL "
    "SELECT TABLE_SCHEMA, COALESCE(DATA_LENGTH, 0) + COALESCE(INDEX_LENGTH, 0) FROM information_schema.TABLES "
    "WHERE " OF_USERS("TABLE_SCHEMA") ") AS parts GROUP BY BINARY name";
constexpr const char* kDatabases =
    "SELECT BINARY SCHEMA_NAME FROM information_schema.SCHEMATA WHERE " OF_USERS("SCHEMA_NAME");
/// Without roles, and without the log-in that asks: locking that would lock the panel out.
constexpr const char* kUsers =
    "SELECT User, Host, COALESCE(JSON_VALUE(Priv, '$.account_locked'), '0') FROM mysql.global_priv "
    "WHERE COALESCE(JSON_VALUE(Priv, '$.is_role'), '0') IN ('0', 'false') AND CONCAT(User, '@', Host) <> "
    "CURRENT_USER()";
/// Where grants on a database stand. They outlive it, and would hold for a later one of its name.
constexpr const char* kGrantTables[] = {"db", "tables_priv", "columns_priv", "procs_priv"};

struct Command {
  const ConfigFile& request;
  DatabaseServer& server;
  std::string& answer;

  std::string_view get(const char* key) const {
    const char* value = request.getValue(key);
    return value == nullptr ? std::string_view() : std::string_view(value);
  }
  std::string user() const { return joined(server.quoted(get("user")), "@", server.quoted(get("host"))); }
  /// Whether a name may be one of the account that is asked for; all are, when none is.
  bool isWanted(std::string_view name) const {
    const std::string_view account = get("account");
    return account.empty() || name == account || (name.starts_with(account) && name[account.size()] == '_');
  }
  void say(std::initializer_list<std::pair<const char*, std::string_view>> pairs) const {
    std::string line;
    for (const auto& [name, value] : pairs) addPair(line, name, value);
    answer += line + "\n";
  }
};

int sayDatabases(const Command& command, const char* statement) {
  return command.server.run(statement, [&](DatabaseRow row) {
    if (!command.isWanted(row[0])) return;
    if (row.size() == 1) return command.say({{"database", row[0]}});
    command.say({{"database", row[0]}, {"bytes", row[1]}});
  });
}

int saySizes(const Command& command) {
  return sayDatabases(command, kSizes);
}

int sayNames(const Command& command) {
  return sayDatabases(command, kDatabases);
}

int sayUsers(const Command& command) {
  return command.server.run(kUsers, [&](DatabaseRow row) {
    const bool isLocked = std::strcmp(row[2], "0") != 0 && std::strcmp(row[2], "false") != 0;
    if (command.isWanted(row[0]))
      command.say({{"user", row[0]}, {"host", row[1]}, {"locked", isLocked ? "yes" : "no"}});
  });
}

/// Ends what the user has running, from wherever: a lock, or even a drop, stops new connections alone.
int endSessions(const Command& command) {
  return command.server.run("KILL HARD CONNECTION USER " + command.server.quoted(command.get("user")));
}

int lockUser(const Command& command) {
  return command.server.run(joined("ALTER USER IF EXISTS ", command.user(), " ACCOUNT LOCK")) && endSessions(command);
}

int unlockUser(const Command& command) {
  return command.server.run(joined("ALTER USER IF EXISTS ", command.user(), " ACCOUNT UNLOCK"));
}

int forgetGrants(const Command& command) {
  const std::string_view name = command.get("database");
  DatabaseServer& server = command.server;
  const std::string names = joined(server.quoted(name), ", ", server.quoted(grantPattern(name)));
  unsigned long long forgotten = 0;
  for (const char* table : kGrantTables) {
    if (!server.run(joined("DELETE FROM mysql.", table, " WHERE Db IN (", names, ")"))) return 0;
    forgotten += server.changedRows();
  }
  return forgotten == 0 || server.run("FLUSH PRIVILEGES");
}

int drop(const Command& command) {
  if (command.request.existsParam("user")) {
    return command.server.run("DROP USER IF EXISTS " + command.user()) && endSessions(command);
  }
  return command.server.run("DROP DATABASE IF EXISTS " + quotedName(command.get("database"))) && forgetGrants(command);
}

struct Row {
  const char* command;
  int (*run)(const Command& command);
};
constexpr Row kRows[] = {{"sizes", saySizes}, {"databases", sayNames}, {"users", sayUsers},
                         {"lock", lockUser},  {"unlock", unlockUser},  {"drop", drop}};

}  // namespace

std::string answerTo(const ConfigFile& request, DatabaseServer& server) {
  std::string answer;
  const Command command{request, server, answer};
  for (const Row& row : kRows) {
    if (command.get("command") != row.command) continue;
    if (row.run(command)) {
      command.say({{"result", "done"}});
    } else if (!server.isLost()) {
      command.say({{"result", "failed"}, {"error", server.error()}});
    }
    return answer;
  }
  command.say({{"result", "failed"}, {"error", "no such command"}});
  return answer;
}

}  // namespace zvtaskq
