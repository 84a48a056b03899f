// Taking a folder away with all that is in it.
#pragma once

#include <climits>
#include <string>

namespace zvtaskq {

/// How much of it may be done at once.
struct RemovalLimits {
  long long bytes = LLONG_MAX;
  int seconds = INT_MAX;
};

struct Removal {
  /// Nothing is left, or there was nothing.
  bool isDone() const { return failures == 0 && !isCutShort; }
  /// A limit was reached; the rest is still there.
  bool isCutShort = false;
  /// Bytes on the disk that are gone.
  long long bytes = 0;
  /// What could not be removed, and the first of it with why.
  long long failures = 0;
  std::string why;
};

/// Removes what is at `path` and all below it. No link is followed, and nothing is entered that is mounted there: what
/// a user was shown in his home stays, and so do the folders above it. It goes on past what cannot be removed. Safe
/// points on the way. Works under the identity of the moment.
Removal removeTree(const std::string& path, const RemovalLimits& limits = {});

}  // namespace zvtaskq
