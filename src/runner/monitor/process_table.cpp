#include "runner/monitor/process_table.h"

#include <cctype>
#include <cstring>
#include <string>

#include "core/panel/marks.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "core/text/text.h"
#include "core/tree/folder_reader.h"
#include "runner/monitor/service_names.h"

namespace zvtaskq {

namespace {

/// Enough of a process's status for its first line.
constexpr std::size_t kStatusRead = 256;
constexpr std::size_t kKeptOfName = 15;
constexpr std::string_view kNameLabel = "Name:\t";

bool isProcess(const dirent& entry) {
  const bool folder = entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN;
  return folder && std::isdigit(static_cast<unsigned char>(entry.d_name[0])) != 0;
}

std::string_view firstWord(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t");
  if (start == std::string_view::npos) return {};
  text.remove_prefix(start);
  return text.substr(0, text.find_first_of(" \t\n"));
}

std::string_view contentOf(int proc, const char* pid, const char* file, char (&buffer)[kStatusRead]) {
  const Descriptor opened(sys::openat(proc, joined(pid, file).c_str(), O_RDONLY));
  const ssize_t got = opened ? sys::read(opened.get(), buffer, sizeof buffer) : 0;
  return {buffer, got > 0 ? static_cast<std::size_t>(got) : 0};
}

/// The name in the first line of a process's status: its first word, as it always was read. Empty when the process is
/// gone.
std::string_view nameInStatus(int proc, const char* pid, char (&buffer)[kStatusRead]) {
  std::string_view text = contentOf(proc, pid, "/status", buffer);
  if (!text.starts_with(kNameLabel)) return {};
  text.remove_prefix(kNameLabel.size());
  return firstWord(text);
}

/// The same name. The kernel tells it alone at a third of the cost of the whole status, but writes a backslash or a
/// line feed in it in another way.
std::string_view nameOf(int proc, const char* pid, char (&buffer)[kStatusRead]) {
  std::string_view text = contentOf(proc, pid, "/comm", buffer);
  if (!text.ends_with('\n')) return nameInStatus(proc, pid, buffer);
  text.remove_suffix(1);
  if (text.find_first_of("\\\n") != std::string_view::npos) return nameInStatus(proc, pid, buffer);
  return firstWord(text);
}

}  // namespace

std::string processName(const char* pid) {
  const AsRoot root;
  const Descriptor proc(sys::open("/proc", O_RDONLY | O_DIRECTORY));
  char buffer[kStatusRead];
  const bool isId = *pid != '\0' && std::strspn(pid, "0123456789") == std::strlen(pid);
  return std::string(proc && isId ? nameOf(proc.get(), pid, buffer) : std::string_view());
}

int getProcessList(ConfigFile& record) {
  const AsRoot root;
  FolderReader proc("/proc");
  if (!proc) {
    errorLog("Running: Error opening /proc directory");
    return 1;
  }
  char buffer[kStatusRead];
  std::string name, pids;
  while (const dirent* entry = proc.next()) {
    if (!isProcess(*entry)) continue;
    name = nameOf(proc.descriptor(), entry->d_name, buffer);
    if (name.empty()) continue;
    const char* before = record.getValue(name.c_str());
    pids = joined(before, entry->d_name, " ");
    record.setParam(name.c_str(), pids.c_str());
  }
  return 1;
}

int getRunningList(ListFile& list) {
  ConfigFile processes(nullptr);
  if (!getProcessList(processes)) return 0;
  list.fill_name(&processes);
  return 1;
}

std::string keptOfName(const char* service) {
  std::string kept = serviceNameOf(service).process;
  if (kept.size() <= kKeptOfName) return kept;
  kept.resize(kKeptOfName);
  if (isDueAgain(joined("process_name.", service).c_str())) {
    errorLog("%s is watched as %s: the system keeps no more of a process's name", service, kept.c_str());
  }
  return kept;
}

int running(const char* service) {
  ListFile list(nullptr);
  return getRunningList(list) && list.existElement(keptOfName(service).c_str()) ? 1 : 0;
}

}  // namespace zvtaskq
