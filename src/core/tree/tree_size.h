// How much a folder holds.
#pragma once

#include <sys/types.h>

namespace zvtaskq {

struct TreeSize {
  /// Bytes of content of the files and links, whatever they take on the disk; folders count none.
  long long bytes = 0;
  /// Blocks of 512 bytes that all of it takes on the disk, folders included.
  long long blocks = 0;
  /// Files, links and folders; a file with several names once.
  long long inodes = 0;
  /// Something in it could not be looked at; the rest is counted.
  bool incomplete = false;
};

/// Measures what is at `path` and all below it, across mounted file systems and however deep. No link is followed; a
/// file with several names in it counts once. Nothing there: all 0. Works under the identity of the moment.
TreeSize measureTree(const char* path);

/// The same of what belongs to the user alone.
TreeSize measureTreeOf(const char* path, uid_t owner);

}  // namespace zvtaskq
