// Rows of service configuration: confirmations, the DNS cluster, the software update.
#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"
#include "core/sys/safe_point.h"
#include "core/text/names.h"
#include "notify/operations.h"
#include "runner/actions/account_operations.h"
#include "runner/actions/action_rows.h"
#include "runner/actions/services_operations.h"
#include "runner/monitor/service_watch.h"
#include "services/dns/zone_files.h"

namespace zvtaskq {

namespace {

/// The longest wait before an update, in seconds: the servers of the world all ask in the same minute.
constexpr int kUpdateSpread = 300;
constexpr int kNothingToUpdate = 2;

void confirmWebInclude(const Task& task) {
  serviceOperations().confirmWebInclude(task.value());
  queueTask("httpd", "restart");
}

void confirmDomainsList(const Task& task) {
  debug(10, "Confirming domains.list for User %s", task.get("user"));
  accountOperations().confirmDomainsList(task.get("user"));
}

constexpr TaskRow kConfirmations[] = {{"httpd.conf", confirmWebInclude}, {"domains.list", confirmDomainsList}};

void syncMailAccount(const Task& task) {
  ConfigFile request(nullptr);
  request.fillFromPost(task.get("request"));
  serviceOperations().sendMailAccount(&request, task.get("username"), task.get("host"));
}

void syncZone(const Task& task) {
  int count = 0;
  static_cast<void>(task.record.getValue("count", &count));
  std::string zone;
  const std::string path = zoneFileOf(task.value());
  if (!isValidDomain(task.value()) || !readZoneFile(task.value(), zone)) {
    errorLog("cluster sync retry number %d requested on %s, but cannot find %s", count, task.value(), path.c_str());
    return;
  }
  serviceOperations().sendZone(task.value(), zone.c_str());
}

void tellOfFailedUpdate(const char* reason) {
  const std::string message = joined("Unable to Update the software!: ", reason);
  errorLog("Unable to Update the software!: %s", reason);
  notifyOperations().notifyAdmins("", message.c_str(), message.c_str(), 1);
}

}  // namespace

void confirmAction(const Task& task) {
  if (runRow(kConfirmations, task.type(), task)) return;
  errorLog("executeCommand: can't figure out what to confirm for '%s'", task.line);
}

void confirmRemovedAction(const Task& task) {
  if (!task.is("type", "httpd.conf")) {
    errorLog("executeCommand: can't figure out what to confirm for '%s'", task.line);
    return;
  }
  serviceOperations().confirmWebRemoval(task.value());
  queueTask("httpd", "restart");
}

void syncAction(const Task& task) {
  if (!task.is("type", "cluster")) {
    errorLog("executeCommand: can't figure out what to sync for '%s'", task.line);
    return;
  }
  const AsRoot root;
  if (task.is("value", "email")) {
    syncMailAccount(task);
  } else {
    syncZone(task);
  }
}

void updateAction(const Task& task) {
  if (!task.is("value", "program")) {
    errorLog("executeCommand: can't figure out what update to do %s", task.line);
    return;
  }
  const auto& update = serviceOperations().updateProgram;
  if (update.missing()) return;
  const int seconds = getRandNumber(0, kUpdateSpread);
  systemLog("Waiting a random number of seconds (%d) before updating to avoid ddos.", seconds);
  sleepSafely(seconds * 1000);
  Text reason;
  switch (update(&reason)) {
    case 0:
      tellOfFailedUpdate(reason.orEmpty());
      break;
    case kNothingToUpdate:
      systemLog("Request to update denied: software is up to date at version %s", sys_conf->version);
      break;
    default:
      systemLog("Update of software successfull!");
      break;
  }
  doservice("zorvane", "restart");
}

}  // namespace zvtaskq
