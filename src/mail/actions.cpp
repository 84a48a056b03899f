#include "mail/actions.h"

#include "core/panel/run_state.h"
#include "core/sys/log.h"
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

constexpr ActionRow kRows[] = {
    {"convert", "value", "todovecot", convertToDovecot, "converts mailboxes to the dovecot layout"},
    {"vacation", "value", "all", switchAllVacations, "switches all vacation messages by their dates"},
    {"vacation", "type", "domain", switchVacations, "switches the vacation messages of a domain by their dates"},
};

}  // namespace

ActionRows mailActions() {
  return kRows;
}

}  // namespace zvtaskq
