// The databases and users of one account, asked of the server. For the sources of this room.
#pragma once

#include <string>
#include <vector>

#include "services/database/helper.h"
#include "services/database/owners.h"

namespace zvtaskq {

struct DatabaseUser {
  std::string name;
  std::string host;
  bool isLocked = false;
  /// A "!" stands before the hash of his password, and the server passes him by.
  bool isMarked = false;
  /// As lists keep it: "bob_shop@%25".
  std::string text() const;
  /// A request about this user.
  DatabaseCall call(const char* command) const;
};

/// Adds the users that belong to the account, and with `databases` the names of its databases. 0 with words.
[[nodiscard]] int findUsers(const char* account, const DatabaseOwners& owners, std::vector<DatabaseUser>& users,
                            std::vector<std::string>* databases, Text& result);

}  // namespace zvtaskq
