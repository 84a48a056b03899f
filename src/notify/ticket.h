// System messages: stored once as a numbered ticket, and announced to each recipient.
#pragma once

#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/identity.h"

namespace zvtaskq {

class Ticket {
 public:
  /// `from` is the account that sends; it must outlive the object.
  explicit Ticket(const char* from = kPanelUser) : result(Text::copyOf("")), from_(from) {}

  /// What went wrong, in lines for people.
  Text result;
  /// A message did not reach anybody: it could not be stored, or not be announced or sent to a single recipient.
  bool isLost = false;

  /// A flag: no e-mail copies, whatever the recipients' records say.
  static constexpr int kWithoutCopies = 1;

  // All of these may be called under any identity, and leave nobody when they have stored or sent anything. In
  // demonstration mode they do neither and report success. Each returns 1, or 0 with the reason in the error log.

  /// A notice to all administrators ("admin.list"). `subject` and `message` may be null: they then say that the service
  /// is down. With `isGeneral` 0 it is such a notice of the service monitor, of which there is one an hour at most and
  /// none unless "admin.conf" asks for them (notice_limit.h); one that is held back is a success. With `byEmail` an
  /// e-mail goes to each administrator instead of a message.
  int notifyAdmins(const char* service, const char* subject, const char* message, int isGeneral, int byEmail = 0,
                   int flag = 0);
  /// A message to users; without any (null or empty) nothing is stored.
  int messageUsers(const char* subject, const char* message, const ListFile* users);
  /// Stores the message of the record (`subject`, `message`, `user`, `priority`; `name` is set to the configured sender
  /// name when it is absent) and announces it to the recipients (null for none), with `includeAdmins` to all
  /// administrators too. 1 when every recipient was reached; one that was not does not keep the others from it.
  int sendSystemMessage(ConfigFile& record, const ListFile* recipients, int flag, bool includeAdmins);

 private:
  int writeTicket(int number, const ConfigFile& record, const char* type);
  int writeMessage(int folder, int number, int message, const char* text);
  int writeHeader(int number, int message, const ConfigFile& record, const char* type);
  int emailAdmins(const ListFile& administrators, const char* subject, const char* message);

  const char* from_;
};

}  // namespace zvtaskq
