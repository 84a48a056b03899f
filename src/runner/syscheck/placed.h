// Whether a file or folder is as it has to be: there, its owner, who may do what with it.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "runner/syscheck/issues.h"

namespace zvtaskq {

/// The permission bits of a mode as people write them.
std::string octal(mode_t mode);

struct Placed {
  std::string path;
  /// Whose it is to be; root's is always right but for "nobody".
  const char* owner;
  /// The mode that is told to set, with S_IFDIR for a folder.
  mode_t mode;
  /// Of its permission bits, those that nobody may have.
  mode_t forbidden;
  /// Nothing is said when it is not there.
  bool mayBeMissing = false;
  /// Whose data it is; empty for the server's.
  std::string_view account = {};
};

/// Looks at it as root, through links that root or the owner made. Adds at most one issue of the kind, which says what
/// to call: a shell takes the line as it stands.
void checkPlaced(const Placed& placed, Concern kind, Issues& issues);

}  // namespace zvtaskq
