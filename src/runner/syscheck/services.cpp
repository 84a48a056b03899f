#include <algorithm>
#include <string>
#include <string_view>

#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"
#include "core/text/split.h"
#include "core/tree/folder_reader.h"
#include "runner/monitor/process_table.h"
#include "runner/monitor/watched_processes.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/issues.h"

namespace zvtaskq {

namespace {

/// Files that a web server has open besides its logs: connections, sockets, what it sends.
constexpr long long kBesideLogs = 1024;
constexpr std::size_t kMostLimits = 64UL * 1024;
/// Processes of one server that are asked; they are alike.
constexpr int kMostAsked = 64;
constexpr std::string_view kLimitLine = "Max open files";
constexpr std::string_view kLogEndings[] = {".log", ".bytes"};

/// The names that the processes of web servers go by, their units, and where their domains log.
struct WebServer {
  const char* process;
  const char* unit;
  Text Settings::*logs;
};
constexpr WebServer kWebServers[] = {{"nginx", "nginx", &Settings::nginxlogdir},
                                     {"apache2", "apache2", &Settings::apachelogdir},
                                     {"httpd", "httpd", &Settings::apachelogdir},
                                     {"litespeed", "lsws", &Settings::apachelogdir}};

bool isLog(std::string_view name) {
  return std::any_of(std::begin(kLogEndings), std::end(kLogEndings),
                     [&](std::string_view ending) { return name.ends_with(ending); });
}

long long logsIn(const char* path) {
  const AsRoot root;
  FolderReader folder(path == nullptr ? "" : path);
  long long count = 0;
  while (folder) {
    const dirent* entry = folder.next();
    if (entry == nullptr) break;
    if (isLog(entry->d_name)) ++count;
  }
  return count;
}

/// The limit in force of a process of root's; -1 when it is another's, has none, or is gone. Anybody may call a process
/// of his as a web server's is called, whose first one is root's.
long long openFilesOf(std::string_view pid) {
  const AsRoot root;
  const Descriptor file(sys::open(joined("/proc/", pid, "/limits").c_str(), O_RDONLY));
  struct stat what {};
  std::string text;
  if (!file || sys::fstat(file.get(), what) != 0 || what.st_uid != kRootIds.user) return -1;
  if (!sys::readAll(file.get(), text, kMostLimits)) return -1;
  const std::size_t place = text.find(kLimitLine);
  long long limit = -1;
  if (place == std::string::npos || std::sscanf(text.c_str() + place + kLimitLine.size(), "%lld", &limit) != 1)
    return -1;
  return limit;
}

/// The lowest limit of some processes, given as their ids, each followed by a blank; -1 when none has one.
long long lowestLimit(std::string_view pids) {
  long long lowest = -1;
  std::vector<std::string_view> all = wordsIn(pids, ' ');
  all.resize(std::min<std::size_t>(all.size(), kMostAsked));
  for (const std::string_view pid : all) {
    const long long limit = openFilesOf(pid);
    if (limit >= 0 && (lowest < 0 || limit < lowest)) lowest = limit;
  }
  return lowest;
}

}  // namespace

void checkServicesRun(Issues& issues) {
  PanelRecord status(adminFile("services.status"));
  status.useLock = false;
  // That it cannot be read is told with the panel's files.
  if (!status.readFile()) return;
  WatchedProcesses processes;
  for (long long i = 0; i < status.size(); ++i) {
    const char* name = status.getNameAt(i);
    if (std::string_view(status.getValueAt(i)) == "OFF" || processes.has(name)) continue;
    issues.add(Concern::services, joined(name, " does not run"),
               joined("look into its own log for why, start it, or set ", name, "=OFF in ", status.getFilename(),
                      " when this server does without it"));
  }
}

void checkOpenFiles(Issues& issues) {
  ConfigFile processes(nullptr);
  if (!getProcessList(processes)) return;
  for (const WebServer& server : kWebServers) {
    const long long limit = lowestLimit(text_detail::part(processes.getValue(server.process)));
    if (limit < 0) continue;
    const long long needed = logsIn(sys_conf->*server.logs) + kBesideLogs;
    if (limit >= needed) continue;
    issues.add(Concern::openFiles,
               joined(server.process, " may open ", std::to_string(limit), " files, and needs ", std::to_string(needed),
                      " for the logs of its domains and its connections"),
               joined("copy ", sys_conf->serverpath, "/share/units/", server.unit,
                      ".service.d to /etc/systemd/system, with a larger LimitNOFILE if need be, call \"systemctl "
                      "daemon-reload\", and restart the server"));
  }
}

}  // namespace zvtaskq
