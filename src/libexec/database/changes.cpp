#include "libexec/database/changes.h"

#include <vector>

#include "libexec/database/commands.h"

namespace zvtaskq {

namespace {

/// Tables of the server by which grants are kept, in which the database's name is a pattern, or just a name.
struct GrantTable {
  const char* name;
  bool hasPatterns;
};
constexpr GrantTable kMoved[] = {{"db", true}, {"tables_priv", false}, {"columns_priv", false}};

/// "IDENTIFIED BY ...", empty when there is neither a password nor a hash.
std::string identification(const Command& command) {
  if (!command.get("hash").empty()) return " IDENTIFIED BY PASSWORD " + command.server.quoted(command.get("hash"));
  if (command.get("password").empty()) return "";
  return " IDENTIFIED BY " + command.server.quoted(command.get("password"));
}

using Name = DatabaseRules::Name;

int allow(const Command& command, std::string why) {
  return why.empty() ? 1 : command.refuse(std::move(why));
}

/// Refuse what is not, or would not be, the account's.
int ownsDatabase(const Command& command, Name which) {
  return allow(command, command.rules.whyNotDatabase(command.get("account"), command.get("database"), which));
}
int ownsUser(const Command& command, Name which) {
  return allow(command,
               command.rules.whyNotUser(command.get("account"), command.get("user"), command.get("host"), which));
}

bool isOfUser(const Command& command) {
  return command.request.existsParam("user") != 0;
}

std::string onDatabase(const Command& command) {
  return " ON " + quotedName(grantPattern(command.get("database"))) + ".*";
}

/// Forgets what the user may do with the database, however it was granted.
int forgetGrantsOf(const Command& command) {
  DatabaseServer& server = command.server;
  const std::string_view name = command.get("database");
  const std::string where =
      joined(" WHERE Db IN (", server.quoted(name), ", ", server.quoted(grantPattern(name)),
             ") AND User = ", server.quoted(command.get("user")), " AND Host = ", server.quoted(command.get("host")));
  for (const char* table : kGrantTables) {
    if (!server.run(joined("DELETE FROM mysql.", table, where))) return 0;
  }
  return server.run("FLUSH PRIVILEGES");
}

/// The first column of all rows.
int readNames(const Command& command, const std::string& statement, std::vector<std::string>& names) {
  return command.server.run(statement, [&](DatabaseRow row) { names.emplace_back(row[0]); });
}

/// How much of a kind the database holds; -1 when the server does not say.
long long countIn(const Command& command, const char* what, std::string_view database) {
  long long count = -1;
  const std::string statement =
      joined("SELECT COUNT(*) FROM information_schema.", what, " = ", command.server.quoted(database));
  const int isRead = command.server.run(statement, [&](DatabaseRow row) { count = std::atoll(row[0]); });
  return isRead ? count : -1;
}

/// What RENAME TABLE does not take from one database to another.
constexpr const char* kNotMoved[] = {"VIEWS WHERE BINARY TABLE_SCHEMA", "TRIGGERS WHERE BINARY TRIGGER_SCHEMA",
                                     "ROUTINES WHERE BINARY ROUTINE_SCHEMA", "EVENTS WHERE BINARY EVENT_SCHEMA"};
constexpr const char* kTables = "TABLES WHERE BINARY TABLE_SCHEMA";

int holdsTablesAlone(const Command& command, std::string_view database) {
  for (const char* what : kNotMoved) {
    const long long count = countIn(command, what, database);
    if (count < 0) return 0;
    if (count > 0) {
      return command.refuse(joined(database,
                                   " holds views, triggers, routines or events, which cannot be renamed with it: ",
                                   "dump it and load it under the new name"));
    }
  }
  return 1;
}

/// All tables by one statement: all of them go, or none.
int moveTables(const Command& command, std::string_view from, std::string_view to) {
  std::vector<std::string> tables;
  const std::string ask = joined("SELECT BINARY TABLE_NAME FROM information_schema.TABLES WHERE BINARY TABLE_SCHEMA = ",
                                 command.server.quoted(from));
  if (!readNames(command, ask, tables)) return 0;
  if (tables.empty()) return 1;
  const long long there = countIn(command, kTables, to);
  if (there < 0) return 0;
  if (there > 0) return command.refuse(joined("the database ", to, " is there already, and holds tables"));
  for (std::string& table : tables) {
    const std::string name = joined(".", quotedName(table));
    table = joined(quotedName(from), name, " TO ", quotedName(to), name);
  }
  return command.server.run("RENAME TABLE " + joinedWith(", ", tables));
}

int moveGrants(const Command& command, std::string_view from, std::string_view to) {
  DatabaseServer& server = command.server;
  for (const GrantTable& table : kMoved) {
    const std::string name = table.hasPatterns ? grantPattern(to) : std::string(to);
    const std::string statement =
        joined("UPDATE IGNORE mysql.", table.name, " SET Db = ", server.quoted(name), " WHERE Db IN (",
               server.quoted(from), ", ", server.quoted(grantPattern(from)), ")");
    if (!server.run(statement)) return 0;
  }
  return forgetGrants(command, from) && server.run("FLUSH PRIVILEGES");
}

/// The characters of a new database are those of the old one.
int makeLike(const Command& command, std::string_view from, std::string_view to) {
  std::string characters;
  const std::string ask = joined(
      "SELECT CONCAT(' CHARACTER SET ', DEFAULT_CHARACTER_SET_NAME, ' COLLATE ', DEFAULT_COLLATION_NAME) FROM "
      "information_schema.SCHEMATA WHERE BINARY SCHEMA_NAME = ",
      command.server.quoted(from));
  if (!command.server.run(ask, [&](DatabaseRow row) { characters = row[0]; })) return 0;
  if (characters.empty()) return command.refuse(joined("there is no database ", from));
  return command.server.run(joined("CREATE DATABASE IF NOT EXISTS ", quotedName(to), characters));
}

int renameDatabase(const Command& command) {
  const std::string_view from = command.get("database"), to = command.get("to");
  if (from == to) return command.refuse(joined(from, " is its name already"));
  return allow(command, command.rules.whyNotDatabase(command.get("to_account"), to, Name::isNew)) &&
         holdsTablesAlone(command, from) && makeLike(command, from, to) && moveTables(command, from, to) &&
         moveGrants(command, from, to) && command.server.run("DROP DATABASE " + quotedName(from));
}

int renameUser(const Command& command) {
  const std::string_view to = command.get("to"), host = command.get("host");
  if (!allow(command, command.rules.whyNotUser(command.get("to_account"), to, host, Name::isNew))) return 0;
  const std::string renamed = joined(command.server.quoted(to), "@", command.server.quoted(host));
  return command.server.run(joined("RENAME USER ", command.user(), " TO ", renamed)) && endSessions(command);
}

int createUser(const Command& command) {
  const std::string by = identification(command);
  if (by.empty()) return command.refuse("a user needs a password");
  return command.server.run(joined("CREATE USER ", command.user(), by));
}

int createDatabase(const Command& command) {
  const std::string_view name = command.get("database");
  const long long there = countIn(command, "SCHEMATA WHERE BINARY SCHEMA_NAME", name);
  if (there < 0 || (there == 0 && !forgetGrants(command, name))) return 0;
  return command.server.run("CREATE DATABASE " + quotedName(name));
}

}  // namespace

int create(const Command& command) {
  if (isOfUser(command)) return ownsUser(command, Name::isNew) && createUser(command);
  return ownsDatabase(command, Name::isNew) && createDatabase(command);
}

int grant(const Command& command) {
  if (!ownsDatabase(command, Name::isThere) || !ownsUser(command, Name::isThere)) return 0;
  std::string error;
  const std::string_view wanted = command.get("privileges");
  const std::string privileges =
      wanted.empty() ? command.rules.allPrivileges() : command.rules.privileges(wanted, error);
  if (privileges.empty()) return command.refuse(error);
  return forgetGrantsOf(command) &&
         command.server.run(joined("GRANT ", privileges, onDatabase(command), " TO ", command.user()));
}

int revoke(const Command& command) {
  return ownsDatabase(command, Name::isThere) && ownsUser(command, Name::isThere) && forgetGrantsOf(command);
}

int setPassword(const Command& command) {
  if (!ownsUser(command, Name::isThere)) return 0;
  const std::string by = identification(command);
  if (by.empty()) return command.refuse("a user needs a password");
  return command.server.run(joined("ALTER USER ", command.user(), by)) && endSessions(command);
}

int rename(const Command& command) {
  if (isOfUser(command)) return ownsUser(command, Name::isThere) && renameUser(command);
  return ownsDatabase(command, Name::isThere) && renameDatabase(command);
}

}  // namespace zvtaskq
