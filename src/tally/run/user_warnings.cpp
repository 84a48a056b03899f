// What a user's figures lead to: warnings, suspension, release.
#include <cstdio>
#include <ctime>

#include "account/model/account_record.h"
#include "account/model/limits.h"
#include "account/suspension/suspension.h"
#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/ticket.h"
#include "tally/run/tally_run.h"
#include "tally/run/user_step.h"

namespace zvtaskq {

namespace {

constexpr int kHookTime = 60;

/// The breakdown's entry of the day before, of which the first of a month has none: its day is 00.
std::string yesterday() {
  const std::time_t now = std::time(nullptr);
  std::tm today{};
  ::localtime_r(&now, &today);
  char key[48];
  std::snprintf(key, sizeof key, "%d %02d %02d", today.tm_year + 1900, today.tm_mon + 1, today.tm_mday - 1);
  return key;
}

/// The number that a file of the mail server begins with. False when there is no such file.
bool readLimitFile(const std::string& path, long long& limit) {
  const Descriptor file(sys::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  char text[64] = "";
  if (!file || sys::read(file.get(), text, sizeof text - 1) < 0) return false;
  limit = 0;
  static_cast<void>(std::sscanf(text, "%lld", &limit));
  return true;
}

/// The account's limit of outgoing mails a day, else that of all.
long long mailLimitOf(const Config& conf, const std::string& account) {
  const AsRoot root;
  long long limit = 0;
  if (!readLimitFile(joined(conf.emailvirtual, "/limit_", account), limit)) {
    static_cast<void>(readLimitFile(joined(conf.emailvirtual, "/limit"), limit));
  }
  return limit == 0 ? conf.default_email_notify_limit : limit;
}

long long outgoingOf(const ConfigFile& breakdown, const std::string& day) {
  ConfigFile entry(nullptr);
  long long count = 0;
  if (entry.fillFromPost(breakdown.getValue(day.c_str())) == 0) return 0;
  static_cast<void>(entry.getValue("email_count_outgoing", &count));
  return count;
}

}  // namespace

void UserStep::warnOfMail() {
  const Config& conf = run_.conf;
  const long long sent = outgoingOf(breakdown_, yesterday());
  if (sent == 0) return;
  const long long limit = mailLimitOf(conf, name_);
  if (sent < limit) return;
  constexpr const char* words = "Warning: %lld emails have been sent yesterday by %s";
  systemLog(words, sent, name_.c_str());
  securityLog(words, sent, name_.c_str());
  errorLog(words, sent, name_.c_str());
  const std::string count = std::to_string(sent);
  ConfigFile tokens(nullptr);
  UsageMessage message;
  message.subject = joined("Warning: ", count, " emails have been sent yesterday by ", name_);
  message.body = joined("There have been ", count, " outgoing emails yesterday from the ", name_,
                        " User account.\nThere could be a spammer, the account could be compromised, or just sending "
                        "more emails than usual.\n\nThis warning was generated because the ",
                        std::to_string(limit), " email threshold was passed.");
  message.includeAdmins = true;
  message.tell(record_.getOrEmpty("creator"));
  static_cast<void>(sendUsageMessage(conf, name_.c_str(), tokens, message));
}

void UserStep::putUsageTokens(ConfigFile& tokens) const {
  const UsedAmount traffic = amount("bandwidth"), disk = amount("quota"), files = amount("inode");
  tokens.setParam("USERNAME", name_.c_str());
  tokens.setParam("BANDWIDTH", oneDigit(traffic.percent()).c_str());
  tokens.setParam("QUOTA", oneDigit(disk.percent()).c_str());
  tokens.setParam("INODE", oneDigit(files.percent()).c_str());
  putAmount(tokens, "BANDWIDTH", traffic);
  putAmount(tokens, "QUOTA", disk);
  const char* limit = record_.getValue("inode");
  tokens.setParam("INODELIMIT", limit == nullptr ? "unlimited" : limit);
  tokens.setParam("INODEUSAGE", static_cast<long long>(files.used));
  tokens.setParam("TIMELEFT", daysLeft(traffic).c_str());
  tokens.setParam("SUSPENDATLIMIT", record_.getOrEmpty("suspend_at_limit"));
  tokens.setParam("CREATOR", record_.getOrEmpty("creator"));
  tokens.setParam("LANG", record_.getOrEmpty("language"));
}

void UserStep::warnOfUsage() {
  const Config& conf = run_.conf;
  const UsedAmount traffic = amount("bandwidth"), disk = amount("quota"), files = amount("inode");
  const struct {
    const char* reason;
    double percent;
    int threshold;
  } rows[] = {{"bandwidth", traffic.percent(), conf.user_warning_thresh},
              {"quota", disk.percent(), conf.user_warning_thresh_disk},
              {"inode", files.percent(), conf.user_warning_thresh_inode}};
  const char* reason = nullptr;
  for (const auto& row : rows) {
    if (reason == nullptr && row.percent > row.threshold) reason = row.reason;
  }
  if (reason == nullptr || !conf.send_usage_message || record_.isValue("sentwarning", "yes")) return;

  ConfigFile tokens(nullptr);
  putUsageTokens(tokens);
  tokens.setParam("REASON", reason);
  UsageMessage message;
  message.templateFile = "user_limit.txt";
  message.subject = joined("User ", name_, " has used up ", oneDigit(traffic.percent()), "% of their bandwidth and ",
                           oneDigit(disk.percent()), "% of their allocated disk space");
  message.body = joined(
      joined("This is an automated message notifying User ", name_, " that ", oneDigit(traffic.percent()),
             "% of their bandwidth, ", oneDigit(disk.percent()), "% of their allocated disk space, ", "and ",
             oneDigit(files.percent()), "% of their inode limit "),
      "has been used up.\n\nIt is estimated, at the current rate of use, that the account bandwidth will be used up "
      "in ",
      daysLeft(traffic),
      " days, at which time the account will be suspended for the remainder of the month.\n\nThe User should contact "
      "Support if this is an issue.\n\n================================\n",
      automaticEnd(conf));
  message.tellFillError = [](const char* account, const char* why) {
    errorLog("Error while tokenizing user_limit template for %s : %s", account, why);
  };
  message.tell(name_.c_str());
  message.tell(record_.getOrEmpty("creator"));
  if (isOff()) {
    errorLog("Account %s is OFF.  Overusage notice will not be sent: '%s'", name_.c_str(), message.subject.c_str());
  } else if (sendUsageMessage(conf, name_.c_str(), tokens, message)) {
    static_cast<void>(setAccountValue(name_.c_str(), "user.conf", "sentwarning", "yes"));
  }
  const HookAnswer post = executeWithTokens(hookPath(conf, "overusage_notice_post.sh").c_str(), tokens, kHookTime);
  if (post.failed()) errorLog("Tally::tallyUser: OverUsage Post output: %s", post.error.c_str());
}

void UserStep::sayOutcome(bool suspended) const {
  const char* limit = record_.getValue("bandwidth");
  const char* used = usage_.getValue("bandwidth");
  if (used == nullptr) used = "0";
  if (limit == nullptr) limit = "unlimited";
  if (suspended) {
    systemLog("User %s has been suspended: bw used: %s, bw limit: %s", name_.c_str(), used, limit);
  } else {
    systemLog("User %s has been unsuspended: bw used: %s, bw limit: %s", name_.c_str(), used, limit);
  }
}

void UserStep::suspendOrRelease() {
  const std::string reason = suspensionReason(exceededLimits(record_, usage_, name_.c_str(), run_.conf));
  const bool isSuspended = record_.isValue("suspended", "yes");
  Text words;
  if (isSuspended && reason.empty() && !isOff()) {
    if (activateAccount(name_.c_str(), SuspendedBy::tally, words)) return sayOutcome(false);
    errorLog("%s", words.orEmpty());
  }
  if (isSuspended || reason.empty() || record_.isValue("suspend_at_limit", "OFF")) return;
  if (!suspendAccount(name_.c_str(), reason.c_str(), SuspendedBy::tally, words)) {
    errorLog("%s", words.orEmpty());
    return;
  }
  sayOutcome(true);
  ConfigFile tokens(nullptr);
  putUsageTokens(tokens);
  tokens.setParam("EMAIL", record_.getOrEmpty("email"));
  tokens.setParam("HOSTNAME", run_.conf.servername.orEmpty());
  tokens.setParam("REASON", reason.c_str());
  UsageMessage message;
  message.templateFile = "user_suspension.txt";
  message.subject = joined("User ", name_, " has been suspended");
  message.body = joined("User ", name_, " has been suspended: ", reason, "\n\n", automaticEnd(run_.conf));
  message.tellFillError = [](const char* account, const char* why) {
    errorLog("Error while tokenizing user_suspension template for %s : %s", account, why);
  };
  message.includeAdmins = true;
  message.tell(record_.getOrEmpty("creator"));
  static_cast<void>(sendUsageMessage(run_.conf, name_.c_str(), tokens, message));
}

}  // namespace zvtaskq
