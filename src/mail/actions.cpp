#include "mail/actions.h"

#include "account/model/account_name.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "mail/vacation_watch.h"

namespace zvtaskq {

namespace {

int switchAllVacations(const Task&) {
  VacationWatch(sys_conf, nullptr);
  return 1;
}

int switchVacations(const Task& task) {
  VacationWatch(sys_conf, task.value());
  return 1;
}

int convertToDovecot(const Task& task) {
  const char* user = task.getOrNull("user");
  if (user == nullptr) {
    systemLog("Converting to dovecot email format");
  } else {
    systemLog("Converting to dovecot email format for user %s", user);
  }
  return 1;
}

int refuseDefaultSpam(const char* domain, const char* why) {
  errorLog("Error with default spam for %s: %s", domain, why);
  return 0;
}

int applyDefaultSpam(const Task& task) {
  const char* domain = task.get("domain");
  const char* user = task.get("username");
  if (!isValidDomain(domain)) return refuseDefaultSpam(domain, "invalid domain name");
  if (!isAccountName(user)) return refuseDefaultSpam(domain, "invalid user name");
  const std::string path = accountFile(user, "domains.list");
  PanelList domains(path);
  if (!domains.readFile()) {
    errorLog("Unable to read %s under user %s for default spam: %s", path.c_str(), user, domains.result.orEmpty());
    return 0;
  }
  if (domains.existElement(domain)) return 1;
  errorLog("%s isn't in %s for default spam.  Username: %s", domain, path.c_str(), user);
  return 0;
}

constexpr ActionRow kRows[] = {
    {"convert", "value", "todovecot", convertToDovecot, "converts mailboxes to the dovecot layout"},
    {"vacation", "value", "all", switchAllVacations, "switches all vacation messages by their dates"},
    {"vacation", "type", "domain", switchVacations, "switches the vacation messages of a domain by their dates"},
    {"defaultspam", nullptr, nullptr, applyDefaultSpam, "applies the default spam settings to a domain"},
};

}  // namespace

ActionRows mailActions() {
  return kRows;
}

}  // namespace zvtaskq
