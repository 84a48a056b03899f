#include "notify/ticket.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "notify/delivery.h"
#include "notify/mail_copies.h"
#include "notify/mail_text.h"
#include "notify/notice_limit.h"
#include "notify/ticket_folder.h"
#include "notify/ticket_number.h"

namespace zvtaskq {

namespace {

constexpr const char* kType = "message";
constexpr unsigned kFileMode = 0600;

const char* orEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

void fillRecord(ConfigFile& record, const char* subject, const char* message) {
  record.setParam("user", "multiple");
  record.setParam("priority", "30");
  record.setParam("subject", orEmpty(subject));
  record.setParam("message", orEmpty(message));
}

int readAdministrators(ListFile& list) {
  list.setFilename(adminFile("admin.list").c_str());
  list.belongsTo(kPanelUser);
  return list.readFile();
}

}  // namespace

int Ticket::notifyAdmins(const char* service, const char* subject, const char* message, int isGeneral, int byEmail,
                         int flag) {
  if (sys_conf == nullptr) {
    debug(1, "sys_conf=NULL : cannot call notifyAdmins(\"%s\", \"%s\", \"%s\", %d)", orEmpty(service), orEmpty(subject),
          orEmpty(message), isGeneral);
    return 0;
  }
  if (isDemo() || (isGeneral == 0 && !mayNotifyOfService())) return 1;
  ListFile administrators(nullptr);
  if (!readAdministrators(administrators)) {
    errorLog("Unable to read: %s: %s", administrators.getFilename(), administrators.result.orEmpty());
    isLost = true;
    return 0;
  }
  const std::string down = joined("The service '", service, "' on server ", sys_conf->servername, " is currently down");
  const std::string automatic = joined("This message has been automatically generated notifying you that the service ",
                                       service, " is currently down.");
  ConfigFile record(nullptr);
  fillRecord(record, subject == nullptr ? down.c_str() : subject, message == nullptr ? automatic.c_str() : message);
  if (byEmail != 0) return emailAdmins(administrators, record.getValue("subject"), record.getValue("message"));
  return sendSystemMessage(record, &administrators, flag, false);
}

int Ticket::emailAdmins(const ListFile& administrators, const char* subject, const char* message) {
  const MailCopies mail(sys_conf->msg_sys, subject, message);
  int all = 1;
  bool any = administrators.size() == 0;
  for (int i = 0; i < administrators.size(); ++i) {
    ConfigFile account(nullptr);
    const int known = readAccount(administrators.getElementAt(i), account);
    const auto addresses = addressesOf(account);
    if (!known || addresses.empty()) {
      errorLog("There is no e-mail address of administrator %s: %s", administrators.getElementAt(i),
               account.result.orEmpty());
      all = 0;
    }
    for (const std::string& address : addresses) {
      const bool sent = mail.send(address) != 0;
      any = any || sent;
      all = sent && all ? 1 : 0;
    }
  }
  isLost = !any;
  return all;
}

int Ticket::messageUsers(const char* subject, const char* message, const ListFile* users) {
  if (sys_conf == nullptr) {
    errorLogAndDebug(1, "sys_conf=NULL : cannot call messageUsers(\"%s\", \"%s\")", orEmpty(subject), orEmpty(message));
    return 0;
  }
  ConfigFile record(nullptr);
  fillRecord(record, subject, message);
  return users == nullptr || users->size() == 0 ? 1 : sendSystemMessage(record, users, 0, false);
}

int Ticket::sendSystemMessage(ConfigFile& record, const ListFile* recipients, int flag, bool includeAdmins) {
  if (sys_conf == nullptr) {
    errorLog("sys_conf=NULL : cannot send the system message \"%s\"", orEmpty(record.getValue("subject")));
    return 0;
  }
  isLost = false;
  if (isDemo()) return 1;
  isLost = true;
  const int number = takeTicketNumber();
  if (number < 0) {
    errorLog("Couldn't get a ticket number for the system message");
    return 0;
  }
  if (!record.existsParam("name")) record.setParam("name", sys_conf->msg_sys.orEmpty());
  if (!writeTicket(number, record, kType)) return 0;

  ListFile everybody(nullptr);
  everybody.keepOrder = true;
  if (recipients != nullptr) everybody.fill(recipients);
  ListFile administrators(nullptr);
  if (includeAdmins && !readAdministrators(administrators)) {
    errorLogAndDebug(10, "sendSystemMessage: include_admins: error reading %s: %s", administrators.getFilename(),
                     administrators.result.orEmpty());
  }
  for (int i = 0; i < administrators.size(); ++i) {
    if (recipients == nullptr || !recipients->existElement(administrators.getElementAt(i))) {
      everybody.addElement(administrators.getElementAt(i));
    }
  }
  isLost = false;
  if (everybody.size() == 0) return 1;
  const MailCopies copies(record.getValue("name"), record.getValue("subject"), record.getValue("message"));
  Delivery delivery(number, kType, from_, (flag & kWithoutCopies) != 0 ? nullptr : &copies);
  int reached = 0;
  for (int i = 0; i < everybody.size(); ++i) reached += delivery.deliver(everybody.getElementAt(i), result) ? 1 : 0;
  isLost = reached == 0;
  return reached == everybody.size() ? 1 : 0;
}

// --- Writing ---------------------------------------------------------------------------------------------------

int Ticket::writeTicket(int number, const ConfigFile& record, const char* type) {
  const FailScope scope("ticket");
  const AsUser panel(kPanelUser);
  const Descriptor folder = openTicketFolder(number);
  if (!folder) {
    const std::string why = std::strerror(errno);
    errorLog("Ticket::writeTicket: Can't create directory: %s", joined(ticketFolder(number), ": ", why).c_str());
    return fail(result, "Unable to create the ticket directory: ", why);
  }
  const int message = nextMessage(folder.get());
  return writeMessage(folder.get(), number, message, orEmpty(record.getValue("message"))) &&
         writeHeader(number, message, record, type);
}

int Ticket::writeMessage(int folder, int number, int message, const char* text) {
  const std::string path = messageFile(number, message, "msg");
  const std::string name = path.substr(path.rfind('/') + 1);
  Descriptor file(sys::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kFileMode));
  if (file) {
    const bool written = sys::writeAll(file.get(), text) == std::strlen(text) && sys::fsync(file.get()) == 0;
    if (written && file.close() == 0) return 1;
    static_cast<void>(sys::unlinkat(folder, name.c_str(), 0));
  }
  errorLog("Ticket::writeTicket::Error opening %s", path.c_str());
  return fail(result, "Could not write the message");
}

int Ticket::writeHeader(int number, int message, const ConfigFile& record, const char* type) {
  ConfigFile header(messageFile(number, message, "conf").c_str());
  header.setUser(nullptr);
  header.fileMode = kFileMode;
  // What the panel's other programs have noted there already stays.
  if (header.exists()) static_cast<void>(header.readFile());
  for (const char* key : {"subject", "user", "priority", "name"}) {
    header.setParam(key, oneLine(orEmpty(record.getValue(key))).c_str());
  }
  header.setParam("from", from_);
  header.setParam("status", "open");
  header.setParam("type", type);
  if (header.writeFile()) return 1;
  errorLog("Ticket::writeTicket::Error writing %s: %s", header.getFilename(), header.result.orEmpty());
  return fail(result, "Could not write message configuration file");
}

}  // namespace zvtaskq
