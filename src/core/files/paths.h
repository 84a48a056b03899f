// Questions about paths. All work under the identity of the moment and leave it.
#pragma once

namespace zvtaskq {

enum class PathKind { any, file, folder };

/// Whether `path` leads to something of that kind, links followed. 0 for null, empty, and what cannot be looked at
/// (errno says why).
int pathExists(const char* path, PathKind kind = PathKind::any);
/// The size in bytes of what `path` leads to, -1 when it cannot be looked at (errno set).
long long fileSize(const char* path);
/// Deletes the file or link itself. 0 with errno set; a folder is not deleted.
[[nodiscard]] int unlinkFile(const char* path);
/// 1 when `path` itself is a symbolic link.
int isLink(const char* path);
/// The link count when `path` itself is a regular file with more than one link, else 0.
int isHardLink(const char* path);
}  // namespace zvtaskq
