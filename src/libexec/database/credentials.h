// The panel's log-in at the database server.
#pragma once

#include <string>

namespace zvtaskq {

struct Credentials {
  std::string user;
  std::string password;
  /// Empty for this machine, which is reached by its socket.
  std::string host;
  /// Empty for the client library's own.
  std::string socket;
  /// 0 for the usual one.
  unsigned port = 0;
};

/// Reads a record with `user`, `passwd` and, if need be, `host`, `socket` and `port`. The file must be a regular one of
/// root's or the panel's user, which nobody else has any permission to. 0, with why in `error`; the words hold nothing
/// of the file's content. Works under the identity of the moment.
[[nodiscard]] int readCredentials(const char* path, Credentials& credentials, std::string& error);

}  // namespace zvtaskq
