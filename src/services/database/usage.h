// What the databases take on the disk, and whose they are.
#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "services/database/owners.h"

namespace zvtaskq {

struct DatabaseUsage {
  std::string name;
  /// Bytes of data and indexes, as the server reckons them.
  long long bytes = 0;
};

/// All databases of the server but its own, sorted by name, by one question to the server. What it answers is kept in
/// "<admindir>/state/database_sizes". When it does not answer, the sizes of the last time are given, with one error-log
/// line and the answer 0. A panel without databases (`hasDatabases`) has none. Under any identity; leaves nobody's when
/// there are databases.
[[nodiscard]] int readDatabases(std::vector<DatabaseUsage>& out);

/// The databases of each account. For a tally: made once a run, asked for each account.
class Databases {
 public:
  /// `all` as `readDatabases` gives them. Those without an owner are nobody's here.
  Databases(std::vector<DatabaseUsage> all, const DatabaseOwners& owners);

  /// Those of the account, in their order; valid as long as this object.
  std::span<const DatabaseUsage> of(std::string_view account) const;
  /// Bytes of all of them.
  static long long bytesOf(std::span<const DatabaseUsage> databases);

 private:
  std::map<std::string, std::vector<DatabaseUsage>, std::less<>> byOwner_;
};

}  // namespace zvtaskq
