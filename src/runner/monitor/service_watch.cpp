#include "runner/monitor/service_watch.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "notify/ticket.h"
#include "runner/monitor/php_fpm.h"
#include "runner/monitor/process_table.h"
#include "runner/monitor/service_check.h"
#include "runner/monitor/service_names.h"
#include "runner/monitor/services_table.h"
#include "runner/monitor/start_backoff.h"
#include "runner/monitor/watched_processes.h"

namespace zvtaskq {

namespace {

/// Milliseconds a service has to come up.
constexpr int kStartTime = 5000;
/// Seconds that a service script is waited for. A database that closes down may well take minutes.
constexpr int kServiceTimeLimit = 600;
/// The same where a test plans for one that hangs.
constexpr int kPlannedTimeLimit = 2;
constexpr int kListTimeLimit = 30;
constexpr const char* kWebServers[] = {"httpd", "nginx", "litespeed", nullptr};

std::string commandFor(const char* service, const char* verb) {
  // The blanks are part of the command's text.
  constexpr const char* ending = "        >/dev/null 2>/dev/null                     ";
  const std::string unit = serviceNameOf(service).unit;
  if (sys_conf->systemd) return joined("/usr/bin/systemctl ", verb, " ", unit, ".service", ending);
  return joined("/sbin/service ", unit, " ", verb, ending);
}

void runVerb(const char* service, const char* verb) {
  const AsRoot root;
  const std::string command = commandFor(service, verb);
  set_program_location("doservice(service='%s', action='%s'): %s", service, verb, command.c_str());
  ChildPlan plan = ChildPlan::shell(command);
  plan.output = ChildPlan::Stream::discard;
  plan.timeLimit = failPoint("service.patience") ? kPlannedTimeLimit : kServiceTimeLimit;
  // A service that takes that long to start would be killed with its script.
  plan.atLimit = ChildPlan::AtLimit::leave;
  const int status = runChild(plan).status;
  if (status == 0) {
    systemLog("%s %sed", service, verb);
    return;
  }
  const Ids ids = effectiveIds();
  errorLogAndDebug(10, "Error %sing service %s : uid %d gid %d : %s : returned %d", verb, service,
                   static_cast<int>(ids.user), static_cast<int>(ids.group), command.c_str(), status);
}

/// PHP runs in services of its own behind a web server, and must follow it.
void takePhpAlong(const char* verb) {
  ListFile services(nullptr);
  if (!installedPhpFpm(services, sys_conf->systemd)) {
    debug(3500, "No php-fpm versions.");
    return;
  }
  if (isDebug() >= 3500) {
    debug(3500, "Here is the list of php-fpm versions:");
    services.printContents();
  }
  const char* gentle = sys_conf->systemd ? "reload" : "graceful";
  const bool stops = std::string_view(verb) == "stop";
  for (int i = 0; i < services.size(); ++i) doservice(services.getElementAt(i), stops ? "stop" : gentle);
}

/// Brings one service up. The running list is the one it was missed in. False when it was in vain.
bool bringUp(const char* name, const ListFile& list) {
  errorLog("service %s wasn't running, starting it", name);
  doservice(name, "start");
  sleepSafely(kStartTime);
  if (running(name)) return true;
  errorLogAndDebug(10, "service %s didn't start, re-starting it", name);
  doservice(name, "restart");
  debug_processes(name, list);
  sleepSafely(kStartTime);
  if (running(name)) return true;
  Ticket().notifyAdmins(name, nullptr, nullptr, 0);
  return false;
}

}  // namespace

void doservice(const char* service, const char* verb) {
  debug(3000, "doservice('%s', '%s')", service, verb);
  if (isKeptFrom(service, verb)) return;
  runVerb(service, verb);
  set_program_location("doservice(service='%s', action='%s'): done", service, verb);
  if (placeIn(service, kWebServers)) takePhpAlong(verb);
}

void checkServices() {
  const std::string path = adminFile("services.status");
  PanelRecord status(path);
  if (!status.readFile()) errorLog("Unable to open %s", path.c_str());
  WatchedProcesses processes;
  StartBackoff backoff;
  for (long long i = 0; i < status.size(); ++i) {
    const char* name = status.getNameAt(i);
    if (std::string_view(status.getValueAt(i)) == "OFF") continue;
    if (!isServiceName(name)) {
      errorLog("%s: '%s' cannot be the name of a service, not watched", path.c_str(), name);
      continue;
    }
    if (processes.has(name) || backoff.waits(name)) continue;
    if (!bringUp(name, processes.all())) backoff.failed(name);
  }
}

void debug_processes(const char* service, const ListFile& list) {
  if (!sys_conf->process_list_debug) return;
  std::printf("%s was found not to be running in the following list:\n\n", service);
  list.printContents();
  const AsRoot root;
  ChildPlan plan = ChildPlan::shell("/bin/ps aux");
  plan.timeLimit = kListTimeLimit;
  std::printf("'/bin/ps aux' output:\n\n%s\n\n", runChild(plan).output.c_str());
  std::fflush(stdout);
}

}  // namespace zvtaskq
