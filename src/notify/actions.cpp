#include "notify/actions.h"

#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "notify/ticket.h"

namespace zvtaskq {

namespace {

constexpr int kGeneral = 1;

int notifyOfBlacklisted(const Task& task) {
  const char* ip = task.get("ip");
  const std::string subject = joined("*** ", ip, " has been added to the ip_blacklist file ***");
  const std::string message =
      joined("The ip '", ip, "' has been added to the ", sys_conf->ip_blacklist,
             " file for having too many repeated failed login attempts into the '", task.get("username"), "' account.");
  return Ticket().notifyAdmins("", subject.c_str(), message.c_str(), kGeneral);
}

int notifyWithText(const Task& task) {
  const char* subject = task.getOrNull("subject");
  const char* message = task.getOrNull("message");
  if (subject != nullptr && message != nullptr) return Ticket().notifyAdmins("", subject, message, kGeneral);
  if (subject == nullptr) {
    errorLogAndDebug(10, "Nofity Admin: subject is missing or empty%s", "");
  } else {
    errorLogAndDebug(10, "Nofity Admin: message is missing or empty%s", "");
  }
  return 0;
}

constexpr ActionRow kRows[] = {
    {"notify", "value", "ip_blacklist", notifyOfBlacklisted, "tells the administrators of a blacklisted address"},
    {"notify", "value", "admin", notifyWithText, "sends the administrators a message"},
};

}  // namespace

ActionRows notifyActions() {
  return kRows;
}

}  // namespace zvtaskq
