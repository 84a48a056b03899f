// Moving through folders that somebody else may be changing at the same time: by descriptor, following no link.
#pragma once

#include <sys/stat.h>

#include <string>

#include "core/sys/sys.h"

namespace zvtaskq {

/// Opens `path` (relative to the folder `root`, which is trusted) without crossing a symbolic link at any step and
/// without leaving `root`. O_NOFOLLOW is implied. An absolute path, one with "..", or an empty one is refused. Not open
/// (errno set, ELOOP or ENOTDIR for a link) on failure. Works under the identity of the moment.
Descriptor openBeneath(int root, const char* path, int flags, mode_t mode = 0);

/// Opens a folder that the caller trusts the way to. Its own last component is not followed when it is a link.
Descriptor openFolder(const char* path);

/// One thing met by `walkTree`.
struct TreeEntry {
  /// The folder it stands in, and its name there. For the top of the tree: what the walk was started with.
  int folder;
  const char* name;
  /// Its path, beginning with the one that the walk was started with.
  const std::string& path;
  /// What it itself is, never a link's target, as seen just before.
  const struct stat& what;
  /// A folder is met twice: before its content and (with this set) after it.
  bool leaving;
};

/// What a visit may answer about a folder besides 1 and 0: go on, but without what is in it.
inline constexpr int kPassBy = 2;

/// Visits `path` and all that is below it. Links are met but never crossed, mounted file systems are. Needs four
/// descriptors and no stack however deep the tree is, and memory for its folders and a few thousand names, however many
/// files there are. A folder that vanishes meanwhile is none; one that is moved away while the walk is in it costs at
/// most what is left to visit in the folders it was moved out of, but when it is the top itself, which ends the walk.
/// `visit` returns 1 to go on, kPassBy not to enter a folder, and 0 to end the walk. Returns 1 when everything was
/// visited, 0 (errno set, or the walk was ended by `visit`) when not: what could be visited was, except after an end.
/// Works under the identity of the moment.
/// `path` is relative to the open folder `root`.
[[nodiscard]] int walkTreeAt(int root, const char* path, int (*visit)(void* context, const TreeEntry& entry),
                             void* context);

template <class Visit>
[[nodiscard]] int walkTreeAt(int root, const char* path, Visit visit) {
  return walkTreeAt(
      root, path, [](void* context, const TreeEntry& entry) -> int { return (*static_cast<Visit*>(context))(entry); },
      &visit);
}

/// The same from the working directory, or of an absolute path.
template <class Visit>
[[nodiscard]] int walkTree(const char* path, Visit visit) {
  return walkTreeAt(AT_FDCWD, path, visit);
}

}  // namespace zvtaskq
