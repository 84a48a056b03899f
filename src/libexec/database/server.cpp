#include "libexec/database/server.h"

#include <mysql.h>

#include <algorithm>

#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr unsigned kConnectTime = 10;
/// The server gives up a statement by itself; how long to wait for the words that say so.
constexpr int kGrace = 5;
constexpr const char* kCharacters = "utf8mb4";
/// The errors of the library itself, which are those of the connection.
constexpr unsigned kFirstOwnError = 2000;
constexpr unsigned kLastOwnError = 5999;

const char* orNull(const std::string& text) {
  return text.empty() ? nullptr : text.c_str();
}

}  // namespace

struct DatabaseServer::Connection {
  MYSQL mysql{};
  Connection() { ::mysql_init(&mysql); }
  ~Connection() { ::mysql_close(&mysql); }
};

DatabaseServer::DatabaseServer() : connection_(std::make_unique<Connection>()) {}
DatabaseServer::~DatabaseServer() = default;

int DatabaseServer::failed() {
  MYSQL* mysql = &connection_->mysql;
  const unsigned number = ::mysql_errno(mysql);
  isLost_ = isLost_ || (number >= kFirstOwnError && number <= kLastOwnError);
  error_ = printable(::mysql_error(mysql));
  return 0;
}

int DatabaseServer::connect(const Credentials& credentials, int seconds) {
  MYSQL* mysql = &connection_->mysql;
  const unsigned reading = static_cast<unsigned>(seconds + kGrace);
  const unsigned noLocalFiles = 0;
  ::mysql_options(mysql, MYSQL_OPT_CONNECT_TIMEOUT, &kConnectTime);
  ::mysql_options(mysql, MYSQL_OPT_READ_TIMEOUT, &reading);
  ::mysql_options(mysql, MYSQL_OPT_WRITE_TIMEOUT, &reading);
  // A server could ask for any file that this program may read.
  ::mysql_options(mysql, MYSQL_OPT_LOCAL_INFILE, &noLocalFiles);
  ::mysql_options(mysql, MYSQL_SET_CHARSET_NAME, kCharacters);
  if (::mysql_real_connect(mysql, orNull(credentials.host), credentials.user.c_str(), credentials.password.c_str(),
                           nullptr, credentials.port, orNull(credentials.socket), 0) == nullptr) {
    return failed();
  }
  return run(joined("SET SESSION max_statement_time = ", std::to_string(seconds),
                    ", lock_wait_timeout = ", std::to_string(std::max(1, seconds / 2))));
}

int DatabaseServer::run(const std::string& statement, const std::function<void(DatabaseRow)>& take) {
  MYSQL* mysql = &connection_->mysql;
  if (::mysql_real_query(mysql, statement.data(), statement.size()) != 0) return failed();
  changedRows_ = ::mysql_affected_rows(mysql);
  const std::unique_ptr<MYSQL_RES, decltype(&::mysql_free_result)> answer(::mysql_store_result(mysql),
                                                                          &::mysql_free_result);
  if (!answer) return ::mysql_field_count(mysql) == 0 ? 1 : failed();
  while (MYSQL_ROW row = ::mysql_fetch_row(answer.get())) {
    if (take) take({row, ::mysql_num_fields(answer.get())});
  }
  return 1;
}

std::string DatabaseServer::quoted(std::string_view text) {
  std::string into(2 * text.size() + 1, '\0');
  into.resize(::mysql_real_escape_string(&connection_->mysql, into.data(), text.data(), text.size()));
  return joined("'", into, "'");
}

std::string quotedName(std::string_view name) {
  std::string quoted = "`";
  for (const char c : name) quoted.append(c == '`' ? 2 : 1, c);
  return quoted + "`";
}

std::string grantPattern(std::string_view name) {
  std::string pattern;
  for (const char c : name) {
    if (c == '_' || c == '%' || c == '\\') pattern += '\\';
    pattern += c;
  }
  return pattern;
}

}  // namespace zvtaskq
