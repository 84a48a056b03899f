// The tally of a reseller or an administrator, and of their users.
#include <algorithm>
#include <string>
#include <vector>

#include "account/model/account_lock.h"
#include "account/model/account_record.h"
#include "account/model/limits.h"
#include "account/suspension/suspension.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/mail_copies.h"
#include "notify/template_notice.h"
#include "notify/ticket.h"
#include "tally/run/tally.h"
#include "tally/run/tally_run.h"
#include "tally/run/usage_message.h"
#include "tally/run/user_step.h"
#include "tally/traffic/tally_file.h"

namespace zvtaskq {

namespace {

/// A reseller's files.
struct Reseller {
  const char* name;
  /// "user.conf": who he is. And "reseller.conf": what his users may use together.
  ConfigFile account{nullptr};
  ConfigFile record{nullptr};
  ConfigFile usage{nullptr};
  PanelList users;
  /// The record over the account: what counts for him.
  ConfigFile limits{nullptr};

  explicit Reseller(const char* reseller) : name(reseller), users(accountFile(reseller, "users.list")) {}

  /// The file that cannot be read, and why; empty when all can.
  std::string read() {
    if (!readAccount(name, account)) return account.result.orEmpty();
    if (!readAccountFile(name, "reseller.conf", record)) return record.result.orEmpty();
    if (!readAccountFile(name, "reseller.usage", usage)) return usage.result.orEmpty();
    if (!users.readFile()) return users.result.orEmpty();
    limits.setFilename(record.getFilename());
    limits.fill(&account);
    limits.fill(&record);
    return "";
  }
  const char* creator() const { return account.getOrEmpty("creator"); }
  UsedAmount amount(const char* key, double used) const { return {used, limitOf(limits, key, name)}; }
};

void warnOfDisk(const Reseller& reseller, const Config& conf) {
  const std::string subject = joined("Reseller ", reseller.name, " has used up 100% (or more) of their disk space");
  const std::string body = joined(
      "This is an automated message notifying Reseller ", reseller.name, " that 100",
      "% of their disk space has been used up.\n\nThe server Admin and Reseller should contact each other if this is "
      "an issue.\n\n================================\n",
      automaticEnd(conf));
  Ticket ticket;
  static_cast<void>(ticket.notifyAdmins("", subject.c_str(), body.c_str(), 1));
  ConfigFile creator(nullptr);
  if (!readAccount(reseller.creator(), creator)) return;
  MailCopies mail(conf.msg_sys, subject.c_str(), body.c_str());
  mail.sentFor(creator.getOrEmpty("name"), creator.getOrEmpty("email"));
  for (const std::string& to : addressesOf(creator)) {
    if (!mail.send(to)) errorLog("Error mailing 100%% warning: %s", to.c_str());
  }
}

int tellBandwidth(const Reseller& reseller, const UsedAmount& bandwidth, const Config& conf) {
  const std::string percent = oneDigit(bandwidth.percent()), days = daysLeft(bandwidth);
  ConfigFile tokens(nullptr);
  tokens.setParam("USERNAME", reseller.name);
  tokens.setParam("BANDWIDTH", percent.c_str());
  tokens.setParam("TIMELEFT", days.c_str());
  putAmount(tokens, "BANDWIDTH", bandwidth);
  UsageMessage message;
  message.templateFile = "reseller_limit.txt";
  message.subject = joined("Reseller ", reseller.name, " has used up ", percent, "% of their bandwidth");
  message.body = joined(
      "This is an automated message notifying Reseller ", reseller.name, " that ", percent,
      "% of their bandwidth has been used up.\n\nIt is estimated, at the current rate of use, that the account will be "
      "used up in ",
      days,
      " days, at which time the account will be suspended for the remainder of the month.\n\nThe server Admin and "
      "Reseller should contact each other if this is an issue.\n\n================================\n",
      automaticEnd(conf));
  message.tellFillError = [](const char* account, const char* why) {
    errorLog("Error while sending reseller limit message to %s : %s", account, why);
  };
  message.tellSendError = [](const char*, const char* why) { errorLog("Error mailing 80%% warning: %s", why); };
  message.tell(reseller.name);
  message.tell(reseller.creator());
  return sendUsageMessage(conf, reseller.name, tokens, message);
}

void warnOfBandwidth(Reseller& reseller, const UsedAmount& bandwidth, const Config& conf) {
  const bool isTold = reseller.limits.isValue("sentwarning", "yes");
  if (isTold || bandwidth.limit.isUnlimited || !conf.send_usage_message || bandwidth.used <= 0) return;
  if (bandwidth.percent() <= conf.reseller_warning_thresh) return;
  if (!tellBandwidth(reseller, bandwidth, conf)) return;
  static_cast<void>(setAccountValue(reseller.name, "reseller.conf", "sentwarning", "yes"));
}

/// Whether the administrators want resellers suspended.
bool suspendsResellers() {
  ConfigFile settings(adminSettingsFile().c_str());
  if (settings.readFile()) return !settings.isValue("suspend", "no");
  errorLog("Tally: Unable to read %s: %s", settings.getFilename(), settings.result.orEmpty());
  return true;
}

void suspendOrRelease(const Reseller& reseller, const ConfigFile& usage, const Config& conf) {
  const std::string reason = suspensionReason(exceededLimits(reseller.limits, usage, reseller.name, conf));
  const bool isSuspended = reseller.account.isValue("suspended", "yes");
  Text words;
  if (isSuspended && reason.empty() && !reseller.account.isValue("account", "OFF")) {
    if (!activateAccount(reseller.name, SuspendedBy::tally, words)) errorLog("%s", words.orEmpty());
  } else if (!isSuspended && !reason.empty() && suspendsResellers()) {
    if (suspendAccount(reseller.name, reason.c_str(), SuspendedBy::tally, words)) {
      systemLog("Reseller %s suspended by Tally", reseller.name);
    } else {
      errorLog("%s", words.orEmpty());
    }
  }
}

}  // namespace

int Tally::tallyReseller(int mask) {
  systemLog("Tally Reseller %s Begin", name_.orEmpty());
  if (mask == 0) mask = kTallyAll;
  const AsUser panel(kPanelUser);
  Reseller reseller(name_);
  const std::string unread = reseller.read();
  if (!unread.empty()) {
    errorLog("*** Unable to read %s reseller files *** : %s", name_.orEmpty(), unread.c_str());
    return 0;
  }
  if (run_ == ownRun_.get()) {
    run_->progress.begin(static_cast<std::size_t>(reseller.users.size()));
    std::vector<std::string> accounts{joined(name_)};
    for (int i = 0; i < reseller.users.size(); ++i) accounts.emplace_back(reseller.users.getElementAt(i));
    std::sort(accounts.begin(), accounts.end());
    run_->putTrafficAside(accounts);
    run_->tellServers(false);
  }
  ListFile users(nullptr);
  for (int i = 0; i < reseller.users.size(); ++i) {
    const char* user = reseller.users.getElementAt(i);
    if (run_->claimUser(user, reseller.users.getFilename())) users.addElement(user);
  }
  tallyOthers(users, kTallyUser, mask);
  tallyOwnAccount(mask);
  if (runFlags.halt) return 0;

  if (run_->wants(kTallyBandwidth)) {
    totals.bandwidth += getTallyTotal(accountFile(name_, "bandwidth.reseller.tally").c_str()) / kMegabyte;
  }
  totals.put(reseller.usage, mask, true);
  int whole = reseller.usage.writeFile();
  if (!whole) errorLog("Error writing %s's reseller files", name_.orEmpty());

  const UsedAmount disk = reseller.amount("quota", totals.quota);
  if (disk.limit.amount > 0 && disk.used > disk.limit.amount) warnOfDisk(reseller, *conf_);
  if ((mask & kTallyUsage) == kTallyUsage) {
    warnOfBandwidth(reseller, reseller.amount("bandwidth", totals.bandwidth), *conf_);
  }
  if (run_->wants(kTallySuspend)) suspendOrRelease(reseller, reseller.usage, *conf_);
  systemLog("Tally Reseller %s Complete", name_.orEmpty());
  return whole;
}

/// His own domains and what he does in the panel: in his own record, and in the sums when the administrator wants it.
void Tally::tallyOwnAccount(int mask) {
  if (!run_->claimUser(joined(name_), accountFile(name_, "user.conf"))) return;
  UserStep step(*run_, name_, mask, UserStep::Kind::reseller);
  if (!step.hasAnything()) return;
  if (!step.run()) run_->skipped();
  TallyTotals own = step.totals();
  own.nusers = 0;
  if (conf_->tally_own_accounts) totals.add(own);
}

}  // namespace zvtaskq
