// Who is running.
#pragma once

#include <string>

namespace zvtaskq {

class ConfigFile;
class ListFile;

/// Fills the record with the processes of this moment: a name a pair, its value the ids of the processes of that name,
/// each followed by a blank. Returns 1; when "/proc" cannot be opened the record stays empty and the error log says so.
/// Runs as root and leaves nobody's identity.
int getProcessList(ConfigFile& record);
/// Fills the list with the names of all running processes. 0 only when the scan itself fails.
[[nodiscard]] int getRunningList(ListFile& list);
/// The name that a process of that service shows, by `service_names` where that says. The system keeps the first 15
/// characters of a process's name; that a longer one cannot be told from others that begin alike is said in the error
/// log, once a day.
std::string keptOfName(const char* service);
/// The name of the process of that id, as `getProcessList` reads it. Empty when there is none, or it is no id.
/// Runs as root and gives back the identity it finds.
std::string processName(const char* pid);
/// Whether a process of that name exists now.
int running(const char* service);

}  // namespace zvtaskq
