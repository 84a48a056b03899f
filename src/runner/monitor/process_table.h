// Who is running.
#pragma once

namespace zvtaskq {

class ConfigFile;
class ListFile;

/// Fills the record with the processes of this moment: a name a pair, its value the ids of the processes of that name,
/// each followed by a blank. Returns 1; when "/proc" cannot be opened the record stays empty and the error log says so.
/// Runs as root and leaves nobody's identity.
int getProcessList(ConfigFile& record);
/// Fills the list with the names of all running processes. 0 only when the scan itself fails.
[[nodiscard]] int getRunningList(ListFile& list);
/// Whether a process of that name exists now.
int running(const char* service);

}  // namespace zvtaskq
