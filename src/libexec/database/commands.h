// What the panel asks of the database server, one URL-encoded record a line, and the answers in the same form.
#pragma once

#include <string>

#include <initializer_list>
#include <string_view>
#include <utility>

#include "core/record/config_file.h"
#include "libexec/database/rules.h"
#include "libexec/database/server.h"

namespace zvtaskq {

/// Carries one request out and gives the lines of its answer: what was found, and at its end a line with `result`,
/// which is "done", or "failed" with `error`. When the connection was lost there is no such end.
std::string answerTo(const ConfigFile& request, DatabaseServer& server, const DatabaseRules& rules);

/// One request that is being carried out.
struct Command {
  const ConfigFile& request;
  DatabaseServer& server;
  const DatabaseRules& rules;
  std::string& answer;
  /// Why it was refused before the server was asked; empty when it was asked.
  mutable std::string refusal;

  std::string_view get(const char* key) const {
    const char* value = request.getValue(key);
    return value == nullptr ? std::string_view() : std::string_view(value);
  }
  /// A user as a statement has it, of `user` and `host`.
  std::string user() const { return joined(server.quoted(get("user")), "@", server.quoted(get("host"))); }
  /// Whether a name may be one of the account that is asked for; all are, when none is.
  bool isWanted(std::string_view name) const {
    const std::string_view account = get("account");
    return account.empty() || name == account || (name.starts_with(account) && name[account.size()] == '_');
  }
  /// Adds a line to the answer.
  void say(std::initializer_list<std::pair<const char*, std::string_view>> pairs) const;
  /// Gives 0, with the words.
  [[nodiscard]] int refuse(std::string why) const {
    refusal = std::move(why);
    return 0;
  }
};

/// Where grants on a database stand.
inline constexpr const char* kGrantTables[] = {"db", "tables_priv", "columns_priv", "procs_priv"};

/// Deletes all grants on a database of that name: they outlive it, and would hold for a later one.
[[nodiscard]] int forgetGrants(const Command& command, std::string_view database);
/// Ends what the user has running, from wherever: a lock, a drop and a new password stop new connections alone.
[[nodiscard]] int endSessions(const Command& command);

}  // namespace zvtaskq
