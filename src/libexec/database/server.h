// A connection to the database server: the only code that knows the client library.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "libexec/database/credentials.h"

namespace zvtaskq {

/// The columns of a row; null for NULL.
using DatabaseRow = std::span<const char* const>;

class DatabaseServer {
 public:
  DatabaseServer();
  ~DatabaseServer();
  DatabaseServer(const DatabaseServer&) = delete;
  DatabaseServer& operator=(const DatabaseServer&) = delete;

  /// Connects; a statement may then take `seconds`, and wait half as long for a table that somebody else has locked. 0
  /// with `error`.
  [[nodiscard]] int connect(const Credentials& credentials, int seconds);
  /// Runs a statement and hands each row of its answer to `take`. 0 with `error`.
  [[nodiscard]] int run(const std::string& statement, const std::function<void(DatabaseRow)>& take = nullptr);
  /// The rows that the last statement changed.
  unsigned long long changedRows() const { return changedRows_; }
  /// Whether the server is gone, or did not answer in time.
  bool isLost() const { return isLost_; }
  /// What went wrong last.
  const std::string& error() const { return error_; }

  /// A text as it stands in a statement: 'it\'s'.
  std::string quoted(std::string_view text);

 private:
  struct Connection;
  int failed();

  std::unique_ptr<Connection> connection_;
  unsigned long long changedRows_ = 0;
  bool isLost_ = false;
  std::string error_;
};

/// The name of a database as it stands in a statement: `my``name`.
std::string quotedName(std::string_view name);
/// The same name as grants hold it, where "_" and "%" stand for other characters too: my\_name.
std::string grantPattern(std::string_view name);

}  // namespace zvtaskq
