// Giving files to somebody, without being tricked into giving away another's. A link's target is never touched.
//
// Only root may do it: the caller has taken that identity, and keeps it.
#pragma once

namespace zvtaskq {

/// Gives `path` itself to the ids.
/// - `checkHardLink`: a regular file with more than one name is refused ("HardLink found on %s (%d links).  Was
///   attempting to be reset to owner UID(%d) GID(%d)" in the error and security logs).
/// - `mustBeUid`, `mustBeGid` (-1 for either): a file that belongs to neither is left alone, with a debug line.
/// - `secureRename`: the file is first renamed to a name that nobody can guess, looked at again under it, changed, and
///   renamed back, so that it cannot be swapped between the look and the change.
/// Returns 1, or 0 with a log line (a debug line for the wrong owner).
[[nodiscard]] int setOwner(const char* path, unsigned uid, unsigned gid, int checkHardLink = 0, int secureRename = 0,
                           int mustBeUid = -1, int mustBeGid = -1);
/// By names: the group is the primary group of the account of that name, else the group of that name. An unknown
/// name gives an error-log line and 0, and changes nothing.
[[nodiscard]] int setOwner(const char* path, const char* user, const char* group, int checkHardLink = 0,
                           int secureRename = 0, int mustBeUid = -1, int mustBeGid = -1);

/// Gives `path` and all that is below it to the ids, in a tree that only trusted people write in. Links are given
/// themselves and not crossed. 0 with error-log lines when anything could not be given; the rest is.
[[nodiscard]] int setOwnerRecursive(const char* path, unsigned uid, unsigned gid);
[[nodiscard]] int setOwnerRecursive(const char* path, const char* user, const char* group);
/// The same in a tree that others may be changing meanwhile: each thing is pinned by a descriptor, looked at, and given
/// through it; a regular file with more than one name is refused and logged as by `setOwner`, and makes the result 0.
[[nodiscard]] int setOwnerRecursive_secure(const char* path, const char* user, const char* group);

/// Gives the folder `to` the permission bits of the folder `from`, and its owner too unless `modeOnly`. Neither may
/// be a link. 0 with an error-log line.
[[nodiscard]] int copy_dir_permission(const char* from, const char* to, int modeOnly = 0);

}  // namespace zvtaskq
