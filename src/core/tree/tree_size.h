// How much a folder holds.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>

namespace zvtaskq {

using Deadline = std::chrono::steady_clock::time_point;

struct TreeSize {
  /// Bytes of content of the files and links, whatever they take on the disk; folders count none.
  long long bytes = 0;
  /// Blocks of 512 bytes that all of it takes on the disk, folders included.
  long long blocks = 0;
  /// Files, links and folders; a file with several names once.
  long long inodes = 0;
  /// Something in it could not be looked at; the rest is counted.
  bool incomplete = false;
  /// The time was over before everything was counted.
  bool isCutShort = false;
};

/// Measures what is at `path` and all below it, across mounted file systems and however deep. No link is followed; a
/// file with several names in it counts once. Nothing there: all 0. Works under the identity of the moment.
TreeSize measureTree(const char* path);

/// The same of what belongs to the user alone.
TreeSize measureTreeOf(const char* path, uid_t owner);

/// The same of what is at `path` below the open folder `root`, where others may be at work: no link is crossed on the
/// way either. Of what belongs to `owner` alone when one is given. Ends at `end`, and comes to safe points on the way.
TreeSize measureBeneath(int root, const char* path, std::optional<uid_t> owner, Deadline end);

}  // namespace zvtaskq
