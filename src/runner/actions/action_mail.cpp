// Rows of the mail accounts, and the one-off conversions.
#include <string>

#include "core/panel/panel_paths.h"
#include "core/panel/task.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "runner/actions/action_rows.h"
#include "runner/actions/backup_operations.h"
#include "runner/actions/mail_operations.h"
#include "runner/actions/services_operations.h"

namespace zvtaskq {

namespace {

/// What every account may use unless somebody decides otherwise.
constexpr const char* kDefaultFeatures[] = {"spam", "cron", "sysinfo", "catchall", "login_keys"};

void convertCronBackups(const Task&) {
  backupOperations().convertCronBackups();
}

void convertToDovecot(const Task& task) {
  const char* user = task.given("user");
  if (user == nullptr) {
    systemLog("Converting to dovecot email format");
  } else {
    systemLog("Converting to dovecot email format for user %s", user);
  }
  mailOperations().convertToDovecot(user, task.given("smart") != nullptr);
}

void convertSuspendedDatabases(const Task&) {
  serviceOperations().convertSuspendedDatabases();
}

void convertUnifiedFtp(const Task& task) {
  const bool simulate = task.given("simulate") != nullptr && !task.is("simulate", "0") && !task.is("simulate", "no");
  const char* what =
      simulate ? "Simulating conversion to unified ftp password file" : "Converting to unified ftp password file";
  systemLog("%s", what);
  debug(10, "%s.  Only accounts with owned IPs are used.", what);
  serviceOperations().convertUnifiedFtp(simulate);
}

void convertInboxPrefix(const Task& task) {
  mailOperations().convertInboxPrefix(task.given("user"));
}

constexpr TaskRow kConversions[] = {{"cronbackups", convertCronBackups},
                                    {"todovecot", convertToDovecot},
                                    {"suspendedmysql", convertSuspendedDatabases},
                                    {"unifiedftp", convertUnifiedFtp},
                                    {"imap_inbox_prefix", convertInboxPrefix}};

}  // namespace

void convertAction(const Task& task) {
  if (runRow(kConversions, task.value(), task)) return;
  errorLog("executeCommand: can't figure out what to convert for '%s'", task.line);
}

void addOptionsAction(const Task& task) {
  ConfigFile settings(nullptr);
  if (task.is("action", "addoptions")) {
    for (const char* feature : kDefaultFeatures) settings.setParam(feature, "ON");
    settings.setParam("inode", "unlimited");
  }
  mailOperations().addDefaultOptions(&settings);
}

void vacationAction(const Task& task) {
  if (task.is("value", "all")) {
    mailOperations().switchAllVacations();
  } else if (task.is("type", "domain")) {
    mailOperations().switchVacations(task.value());
  } else {
    errorLog("executeCommand: can't figure out what vacation message to do %s", task.line);
  }
}

void defaultSpamAction(const Task& task) {
  const char* domain = task.get("domain");
  const char* user = task.get("username");
  if (!isValidDomain(domain)) {
    errorLog("Error with default spam for %s: %s", domain, "invalid domain name");
    return;
  }
  if (!isValidUsername(user)) {
    errorLog("Error with default spam for %s: %s", domain, "invalid user name");
    return;
  }
  const std::string path = accountFile(user, "domains.list");
  ListFile domains(path.c_str());
  domains.setUser(kPanelUser);
  if (!domains.readFile()) {
    errorLog("Unable to read %s under user %s for default spam: %s", path.c_str(), user, domains.result.orEmpty());
    return;
  }
  if (!domains.existElement(domain)) {
    errorLog("%s isn't in %s for default spam.  Username: %s", domain, path.c_str(), user);
    return;
  }
  const auto& apply = mailOperations().applyDefaultSpam;
  Text result;
  if (apply.missing() || apply(domain, user, &result)) return;
  errorLog("Error with default spam for %s: %s", domain, result.orEmpty());
}

}  // namespace zvtaskq
