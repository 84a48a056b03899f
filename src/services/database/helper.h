// Asking the database server, by the helper program that knows its client library ("libexec/zvdb", started as root;
// once it has read the panel's log-in it is nobody).
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/record/config_file.h"

namespace zvtaskq {

/// Whether this panel has databases: the setting `mysql` is on, and the file `mysqlconf` is there.
bool hasDatabases();

/// One request, and how it ended.
struct DatabaseCall {
  /// The pairs of the request, such as {{"command", "lock"}, {"user", "bob_x"}, {"host", "%"}}.
  explicit DatabaseCall(std::initializer_list<std::pair<const char*, std::string_view>> pairs);
  std::string request;
  /// Gets each line that was found, before the end of the request is known; may be empty.
  std::function<void(const ConfigFile& row)> take;
  /// The server carried it out or refused it; otherwise it may have done either.
  bool isAnswered = false;
  bool isDone = false;
  /// Why it was refused.
  std::string error;
};

/// Seconds that one statement and all requests together may take.
struct DatabaseTime {
  int statement;
  int all;
};

/// Carries the requests out in their order. 1 when each was answered; 0 with why not in `result`: the log-in cannot be
/// read or is refused, the server is down or too slow. Under any identity, which is the same afterwards.
[[nodiscard]] int askDatabaseServer(std::vector<DatabaseCall>& calls, DatabaseTime time, Text& result);

}  // namespace zvtaskq
