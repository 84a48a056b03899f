#include "notify/notices.h"

#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "notify/operations.h"
#include "notify/ticket.h"

namespace zvtaskq {

namespace {

int notifyAdmins(const char* service, const char* subject, const char* message, int isGeneral) {
  return Ticket().notifyAdmins(service, subject, message, isGeneral);
}

int mailAdmins(const char* service, const char* subject, const char* message, int isGeneral) {
  return Ticket().notifyAdmins(service, subject, message, isGeneral, 1);
}

int messageUsers(const char* subject, const char* message, ListFile* users) {
  return Ticket().messageUsers(subject, message, users);
}

int sendSystemMessage(ConfigFile* message, ListFile* recipients) {
  return message == nullptr ? 0 : Ticket().sendSystemMessage(*message, recipients, 0, false);
}

}  // namespace

void provideNotices() {
  NotifyOperations& operations = notifyOperations();
  operations.notifyAdmins.provide(notifyAdmins);
  operations.mailAdmins.provide(mailAdmins);
  operations.messageUsers.provide(messageUsers);
  operations.sendSystemMessage.provide(sendSystemMessage);
}

}  // namespace zvtaskq
