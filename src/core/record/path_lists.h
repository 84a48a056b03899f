// Folders and hard links in numbers: what is found or made goes into a list. All work under the identity of the moment
// and leave it.
#pragma once

namespace zvtaskq {

class ListFile;

/// Looks through `path` and everything below it, crossing no symbolic link, for regular files with more than one
/// link, and adds their paths to `found` when it is given (a list with `keepOrder` takes them fastest). Returns 1 when
/// there is one, or when a part of the tree could not be looked at (error-log line): what is not known to be clean
/// counts as not clean. 0 also for a path that does not exist.
int pathContainsHardLink(const char* path, ListFile* found = nullptr);

/// Creates the folders of `path` from the (startDepth+1)-th component on, each with exactly the permission bits
/// `mode` and the owner of the moment; those that were there are left as they are. The new ones are added to `created`
/// when it is given, so that a caller whose operation fails can remove them. Returns 1, or 0 with the reason in the
/// system result, which is cleared first.
[[nodiscard]] int createPath(const char* path, unsigned mode, int startDepth, ListFile* created);

}  // namespace zvtaskq
