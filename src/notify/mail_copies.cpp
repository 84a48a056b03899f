#include "notify/mail_copies.h"

#include <algorithm>
#include <ctime>
#include <string_view>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/system_info.h"
#include "core/process/child.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "core/text/split.h"
#include "notify/mail_text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestComplaint = 4096;
bool outOfReach = false;

std::string textOf(const char* text) {
  return text == nullptr ? "" : text;
}

/// The name of this server in an address; never one that could not stand there.
const std::string& serverName() {
  static std::string name;
  const std::string wanted = sys_conf->servername.orEmpty();
  if (isValidDomain(wanted.c_str())) {
    name = wanted;
  } else if (name.empty()) {
    const std::string own = getHostName();
    name = isValidDomain(own.c_str()) ? own : "localhost";
  }
  return name;
}

ChildPlan sendmail(std::string message) {
  ChildPlan plan = ChildPlan::program(kSendmail, {"-t"});
  if (realIds().user == 0) plan.identity = idsOf(kPanelUser);
  plan.workingDirectory = std::string("/");
  plan.inputs.push_back(std::move(message));
  plan.errors = ChildPlan::Stream::collect;
  plan.outputLimit = kLongestComplaint;
  plan.timeLimit = kSendmailTimeLimit;
  return plan;
}

}  // namespace

std::vector<std::string> addressesOf(const ConfigFile& account) {
  std::vector<std::string> addresses;
  for (const std::string_view address : wordsIn(account.getOrEmpty("email"), ',')) {
    if (isMailAddress(address)) {
      addresses.emplace_back(address);
    } else {
      errorLog("'%s' of account %s is no e-mail address", std::string(address).c_str(),
               textOf(account.getValue("username")).c_str());
    }
  }
  return addresses;
}

bool wantsCopies(const ConfigFile& account) {
  return !account.isValue("email_on_message", "no");
}

MailCopies::MailCopies(const char* senderName, const char* subject, const char* body)
    : senderName_(textOf(senderName)), subject_(textOf(subject)), body_(textOf(body)) {}

void MailCopies::sentFor(const char* name, const char* address) {
  if (address == nullptr || !isMailAddress(address)) return;
  senderName_ = textOf(name);
  from_ = address;
}

int MailCopies::send(const std::string& address) const {
  if (outOfReach) return 0;
  MailText mail;
  mail.fromName = senderName_;
  mail.server = serverName();
  const std::string panel = joined(kPanelUser, "@", mail.server);
  mail.from = from_.empty() ? panel : from_;
  if (!from_.empty()) mail.sender = panel;
  mail.to = address;
  mail.subject = subject_;
  mail.body = body_;
  mail.date = std::time(nullptr);
  const ChildResult child = runChild(sendmail(composeMail(mail)));
  if (child.status == 0) return 1;
  outOfReach = child.timedOut || child.status == -1 || child.status == 127;
  errorLog("Unable to send an e-mail to %s: %s returned %d%s: %s", address.c_str(), kSendmail, child.status,
           outOfReach ? ", no more are sent in this run" : "", child.output.c_str());
  return 0;
}

}  // namespace zvtaskq
