#include "libexec/database/commands.h"

#include <cstring>

#include "core/text/post_string.h"
#include "core/text/text.h"
#include "libexec/database/changes.h"

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
    "SELECT User, Host, COALESCE(JSON_VALUE(Priv, '$.account_locked'), '0'), "
    "COALESCE(JSON_VALUE(Priv, '$.authentication_string'), '') FROM mysql.global_priv "
    "WHERE COALESCE(JSON_VALUE(Priv, '$.is_role'), '0') IN ('0', 'false') AND CONCAT(User, '@', Host) <> "
    "CURRENT_USER()";
constexpr char kMark = '!';

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
    const bool isMarked = row[3][0] == kMark;
    if (command.isWanted(row[0])) {
      command.say({{"user", row[0]},
                   {"host", row[1]},
                   {"locked", isLocked ? "yes" : "no"},
                   {"marked", isMarked ? "yes" : "no"}});
    }
  });
}

/// What an older suspension did: the mark before the hash, with which the server passes the user by altogether. It
/// goes, and in the same statement the user is locked.
int unmarkUser(const Command& command) {
  DatabaseServer& server = command.server;
  const std::string statement = joined(
      "UPDATE mysql.global_priv SET Priv = JSON_SET(Priv, '$.authentication_string', "
      "SUBSTRING(JSON_VALUE(Priv, '$.authentication_string'), 2), '$.account_locked', true) WHERE User = ",
      server.quoted(command.get("user")), " AND Host = ", server.quoted(command.get("host")),
      " AND JSON_VALUE(Priv, '$.authentication_string') LIKE '!%'");
  return server.run(statement) && (server.changedRows() == 0 || server.run("FLUSH PRIVILEGES"));
}

int lockUser(const Command& command) {
  return command.server.run(joined("ALTER USER IF EXISTS ", command.user(), " ACCOUNT LOCK")) && endSessions(command);
}

int unlockUser(const Command& command) {
  return command.server.run(joined("ALTER USER IF EXISTS ", command.user(), " ACCOUNT UNLOCK"));
}

int drop(const Command& command) {
  if (command.request.existsParam("user")) {
    return command.server.run("DROP USER IF EXISTS " + command.user()) && endSessions(command);
  }
  return command.server.run("DROP DATABASE IF EXISTS " + quotedName(command.get("database"))) &&
         forgetGrants(command, command.get("database"));
}

struct Row {
  const char* command;
  int (*run)(const Command& command);
};
constexpr Row kRows[] = {{"sizes", saySizes}, {"databases", sayNames},   {"users", sayUsers},
                         {"lock", lockUser},  {"unlock", unlockUser},    {"unmark", unmarkUser},
                         {"drop", drop},      {"create", create},        {"grant", grant},
                         {"revoke", revoke},  {"password", setPassword}, {"rename", rename}};

}  // namespace

void Command::say(std::initializer_list<std::pair<const char*, std::string_view>> pairs) const {
  std::string line;
  for (const auto& [name, value] : pairs) addPair(line, name, value);
  answer += line + "\n";
}

int endSessions(const Command& command) {
  return command.server.run("KILL HARD CONNECTION USER " + command.server.quoted(command.get("user")));
}

int forgetGrants(const Command& command, std::string_view database) {
  DatabaseServer& server = command.server;
  const std::string names = joined(server.quoted(database), ", ", server.quoted(grantPattern(database)));
  unsigned long long forgotten = 0;
  for (const char* table : kGrantTables) {
    if (!server.run(joined("DELETE FROM mysql.", table, " WHERE Db IN (", names, ")"))) return 0;
    forgotten += server.changedRows();
  }
  return forgotten == 0 || server.run("FLUSH PRIVILEGES");
}

std::string answerTo(const ConfigFile& request, DatabaseServer& server, const DatabaseRules& rules) {
  std::string answer;
  const Command command{request, server, rules, answer, ""};
  for (const Row& row : kRows) {
    if (command.get("command") != row.command) continue;
    if (row.run(command)) {
      command.say({{"result", "done"}});
    } else if (!server.isLost()) {
      command.say({{"result", "failed"}, {"error", command.refusal.empty() ? server.error() : command.refusal}});
    }
    return answer;
  }
  command.say({{"result", "failed"}, {"error", "no such command"}});
  return answer;
}

}  // namespace zvtaskq
