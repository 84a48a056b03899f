#include "notify/delivery.h"

#include <string>

#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "core/panel/panel_paths.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "notify/mail_copies.h"
#include "notify/message_list.h"

namespace zvtaskq {

Delivery::Delivery(int ticket, const char* type, const char* from, const MailCopies* copies)
    : ticket_(ticket), type_(type), from_(from), copies_(copies), administrators_(adminFile("admin.list").c_str()) {
  administrators_.belongsTo(kPanelUser);
  if (!administrators_.readFile()) {
    errorLog("Unable to read: %s: %s", administrators_.getFilename(), administrators_.result.orEmpty());
  }
}

int Delivery::deliver(const char* recipient, Text& result) {
  if (std::string_view(recipient) == from_) return 1;
  if (!isAccountName(recipient)) {
    errorLog("Ticket::deliverMessage::Can't read %s: %s", recipient, "it cannot be the name of an account");
    return fail(result, "Can't read ", recipient, "'s tickets file to add ticket");
  }
  ConfigFile account(nullptr);
  const bool known = readAccount(recipient, account) != 0;
  const bool isAdministrator = administrators_.existElement(recipient) || accountTypeOf(account) == AccountType::admin;
  if (!isAdministrator || !administratorsTold_) {
    const std::string list = isAdministrator ? adminFile("tickets.list") : accountFile(recipient, "tickets.list");
    if (!announceTicket(list.c_str(), ticket_, type_, recipient, result)) return 0;
    administratorsTold_ = administratorsTold_ || isAdministrator;
  }
  if (!known || copies_ == nullptr || !wantsCopies(account)) return 1;
  for (const std::string& address : addressesOf(account)) static_cast<void>(copies_->send(address));
  return 1;
}

}  // namespace zvtaskq
