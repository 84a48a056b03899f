// How full the mounted file systems are, as the system's own tool for it says.
#pragma once

#include <string_view>

namespace zvtaskq {

class ConfigFile;

/// Fills `usage` with a pair a mount point: its path, and a URL-encoded record with the column `Use`, the used share in
/// whole percent. Mounts that hold no data, and those that lie hidden below another, are left out. May be called under
/// any identity, which is the same afterwards. 0 when the tool cannot be run, takes longer than 30 seconds (error log),
/// or shows no file system.
[[nodiscard]] int readPartitionUsage(ConfigFile& usage);

/// The same from the tool's table: a title line, then lines of the used share and the mount point. Lines of another
/// form are left out. Returns the number of mount points taken.
int parsePartitionUsage(std::string_view table, ConfigFile& usage);

}  // namespace zvtaskq
