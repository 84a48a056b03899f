// The order of an account's step, its files, and its sums.
#include "tally/run/user_step.h"

#include "account/model/account_record.h"
#include "account/model/limits.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "notify/old_messages.h"
#include "tally/disk/quota_tables.h"
#include "tally/logs/account_logs.h"
#include "tally/run/tally_run.h"
#include "tally/traffic/bandwidth_breakdown.h"

namespace zvtaskq {

namespace {

constexpr const char* kPanelTraffic = "ZorvaneUsage.bytes";
/// Billed logs that may wait for the next flush.
constexpr std::size_t kMostWaiting = 1000;
constexpr const char* kSpool = "/var/spool/mail/";
constexpr int kSpaceShown = 30;

Deadline endOf(int seconds) {
  return seconds <= 0 ? Deadline::max() : Deadline::clock::now() + std::chrono::seconds(seconds);
}

long long numberOf(const ConfigFile& record, const char* key) {
  return static_cast<long long>(amountOf(record, key));
}

}  // namespace

UserStep::UserStep(TallyRun& run, const char* account, int mask, Kind kind)
    : run_(run),
      name_(account),
      mask_(mask),
      kind_(kind),
      lock_(account, 0),
      disk_(account),
      time_(account, run.conf.account_time_limit),
      deadline_(endOf(run.conf.account_time_limit)) {
  const SystemAccount* found = systemAccounts().find(account);
  system_ = found == nullptr ? SystemAccount{{kUnknownId, kUnknownId}, ""} : *found;
}

// --- Files -----------------------------------------------------------------------------------------------------

int UserStep::readFiles() {
  if (record_.size() > 0) return 1;
  Text why;
  if (!readAccount(name_.c_str(), record_)) {
    addResult(why, record_.result);
  } else if (readDomains(name_.c_str(), domains_, why) && !readAccountFile(name_.c_str(), "user.usage", usage_)) {
    addResult(why, usage_.result);
  }
  if (why.isNull()) {
    run_.noteLimits(name_, record_);
    std::erase_if(domains_, [&](const std::string& domain) { return !run_.claimDomain(domain, name_.c_str()); });
    return 1;
  }
  errorLog("Unable to read user %s's data files: %s", name_.c_str(), why.orEmpty());
  record_.empty();
  return 0;
}

/// Another run works on the account.
int UserStep::countAsBefore() {
  errorLog("Account %s is busy, and is not tallied: what it used before counts", name_.c_str());
  if (!readAccountFile(name_.c_str(), "user.usage", usage_)) return 0;
  totals_ = TallyTotals::of(usage_);
  totals_.nusers = 1;
  run_.skipped();
  return 1;
}

bool UserStep::hasAnything() {
  const AsUser panel(kPanelUser);
  if (!lock_.held()) return true;
  struct stat what {};
  return readFiles() && (!domains_.empty() || sys::lstat(accountFile(name_.c_str(), kPanelTraffic).c_str(), what) == 0);
}

int UserStep::run() {
  const AsUser panel(kPanelUser);
  if (!lock_.held()) return countAsBefore();
  if (!readFiles()) return 0;
  if (system_.home.empty() && kind_ == Kind::user && run_.wants(kTallyDisk)) {
    errorLog("Account %s: there is no system account of that name", name_.c_str());
  }
  if (run_.byteLogs() != nullptr) bill_ = std::make_unique<AccountBill>(*run_.byteLogs(), name_.c_str());
  if (!system_.home.empty() && run_.wants(kTallyDisk)) home_ = openHome(name_.c_str());
  visitDomains();
  {
    const AsRoot root;
    measureOthers();
    billTraffic();
  }
  keepHouse();
  addDiskTotal();
  count();
  totals_ = TallyTotals::of(usage_);
  totals_.nusers = 1;
  if (run_.wants(kTallyBandwidth)) warnOfMail();
  if (kind_ == Kind::user && (mask_ & kTallyUsage) == kTallyUsage) warnOfUsage();
  if (!writeUsage()) outcome_ = 0;
  if (kind_ == Kind::user && run_.wants(kTallySuspend)) suspendOrRelease();
  return outcome_;
}

// --- Sums ------------------------------------------------------------------------------------------------------

/// What lies in the home but is somebody else's, and so is not in the quota, is counted on top of it.
void UserStep::measureMail() {
  if (!run_.wants(kTallyDisk) || run_.conf.simple_disk_usage) return;
  const AsRoot root;
  const bool onTop = run_.countsMailOnTop();
  long long mail = 0;
  if (onTop) {
    const long long spool = fileSizeOf(joined(kSpool, name_), true);
    mail += spool;
    mailOnTop_ += static_cast<double>(spool);
  }
  const std::string& home = home_.path;
  mail += measure(joined(home, "/Maildir").c_str(), "Maildir", false);
  mail += measure(joined(home, "/imap").c_str(), "imap", false);
  const long long roots = measure(joined("root owned files in ", home, "/imap").c_str(), "imap", true, "root");
  mail += measure(joined(home, "/.spamassassin/spam").c_str(), ".spamassassin/spam", false);
  const long long spam = measure(joined("files owned by mail in ", home, "/.spamassassin/user_spam").c_str(),
                                 ".spamassassin/user_spam", true, "mail");
  mailOnTop_ += static_cast<double>(roots + spam);
  usage_.setParam("email_quota", mail + spam);
}

/// Webmail's and the mailing lists' files, and the databases.
void UserStep::measureOthers() {
  if (!run_.wants(kTallyDisk)) return;
  const AsRoot root;
  const long long webmail = run_.webmailFilesOf(system_.ids.user);
  if (webmail > 0) disk_.du_detail(webmail, "webmail", false);
  for (const std::string& domain : domains_) {
    const std::string folder = joined(run_.conf.emailvirtual, "/majordomo"), lists = "list." + domain;
    if (!run_.namesIn(folder, "").mayHave(lists)) continue;
    const TreeSize size = measureTree(joined(folder, "/", lists).c_str());
    if (size.bytes <= 0) continue;
    disk_.du_detail(size.bytes, joined("majordomo of ", domain).c_str(), true);
    mailOnTop_ += static_cast<double>(size.bytes);
  }
  if (!run_.conf.mysql) return;
  const long long bytes = Databases::bytesOf(run_.databases().of(name_));
  if (bytes > 0) disk_.du_detail(bytes, "MySQL Databases", true);
  usage_.setParam("db_quota", bytes);
}

int UserStep::billTraffic() {
  if ((mask_ & (kTallyBandwidth | kTallyCounts)) == 0) return 1;
  const std::string path = accountFile(name_.c_str(), "bandwidth.tally");
  const AsRoot root;
  if (bill_ != nullptr) {
    traffic_.panel = bill_->noted(kPanelTraffic);
    if (!bill_->enter(traffic_)) outcome_ = 0;
  }
  if (!get_bandwidth_breakdown(path.c_str(), breakdown_)) outcome_ = 0;
  if (!run_.wants(kTallyBandwidth)) return outcome_;
  breakdown_.setFilename(joined(path, ".cache").c_str());
  breakdown_.setUser("root");
  breakdown_.useLock = false;
  breakdown_.batch = &batch_;
  if (!breakdown_.writeFile()) {
    errorLog("Error writing: %s : %s", breakdown_.getFilename(), breakdown_.result.orEmpty());
  }
  usage_.setParam("bandwidth", amountOf(breakdown_, "simpletotal") / kMegabyte, kMegabyteForm);
  if (bill_ != nullptr && run_.byteLogs()->waiting() > kMostWaiting) run_.byteLogs()->flush();
  return outcome_;
}

void UserStep::keepHouse() {
  if (!run_.wants(kTallyHousekeeping)) return;
  if (run_.conf.php_mail_log && !system_.home.empty()) static_cast<void>(rotatePhpMailLog(name_.c_str(), &run_.conf));
  static_cast<void>(rotateLoginKeyLogs(name_.c_str(), &run_.conf));
  static_cast<void>(removeOldMessages(name_.c_str()));
}

void UserStep::addDiskTotal() {
  if (!run_.wants(kTallyDisk)) return;
  if (!diskIsWhole_) {
    errorLog("Account %s: its files could not be looked at in %d seconds (account_time_limit): its disk figures stay",
             name_.c_str(), run_.conf.account_time_limit);
    outcome_ = 0;
    return;
  }
  double used = getDiskUsage(run_.quotas, name_.c_str());
  debug(kSpaceShown, "  spaceused: %f", used);
  const long long databases = numberOf(usage_, "db_quota");
  used += static_cast<double>(databases);
  debug(kSpaceShown, "  spaceused: %f (add dbtotal %lld)", used, databases);
  const struct {
    const char* what;
    double bytes;
  } parts[] = {{"mail", mailOnTop_}, {"apache", apacheFiles_}, {"anonymous ftp", anonymousFtp_}};
  for (const auto& part : parts) {
    used += part.bytes;
    debug(kSpaceShown, "  spaceused: %f (add %s %lld)", used, part.what, static_cast<long long>(part.bytes));
  }
  usage_.setParam("quota", used / kMegabyte, kMegabyteForm);
  usage_.setParam("inode", getInodes(run_.inodes, name_.c_str()));
  if (!usage_.existsParam("db_quota")) usage_.setParam("db_quota", 0);
  if (!usage_.existsParam("email_quota")) usage_.setParam("email_quota", 0);
}

void UserStep::count() {
  if (!run_.wants(kTallyCounts)) return;
  const AccountCounts counts = run_.counts().of(name_.c_str(), domains_);
  const struct {
    const char* key;
    long long number;
    bool isWhole;
  } rows[] = {
      {"vdomains", static_cast<long long>(domains_.size()), true},
      {"nsubdomains", static_cast<long long>(nsubdomains_), subdomainsAreWhole_},
      {"nemails", counts.nemails, counts.isWhole},
      {"nemailf", counts.nemailf, counts.isWhole},
      {"nemailml", counts.nemailml, counts.isWhole},
      {"nemailr", counts.nemailr, counts.isWhole},
      {"domainptr", counts.domainptr, counts.isWhole},
      {"ftp", counts.ftp, counts.isWhole},
      {"email_deliveries", numberOf(breakdown_, "email_count"), true},
      {"email_deliveries_incoming", numberOf(breakdown_, "email_count_incoming"), true},
      {"email_deliveries_outgoing", numberOf(breakdown_, "email_count_outgoing"), true},
      {"mysql", run_.conf.mysql ? static_cast<long long>(run_.databases().of(name_).size()) : 0, true},
  };
  // What could not be counted to its end keeps the figure of before; the error log says what it was.
  for (const auto& row : rows) {
    if (row.isWhole || !usage_.existsParam(row.key)) usage_.setParam(row.key, row.number);
  }
}

/// Who writes there holds the account: its records need no locks of their own.
int UserStep::writeUsage() {
  usage_.useLock = false;
  usage_.batch = &batch_;
  int whole = usage_.writeFile();
  if (!whole) errorLog("Error writing %s: %s", usage_.getFilename(), usage_.result.orEmpty());
  whole &= batch_.commit();
  return !run_.wants(kTallyDisk) || disk_.write() ? whole : 0;
}

// --- Helpers ---------------------------------------------------------------------------------------------------

/// The bytes of what is at a path in the home, those of `owner` alone when one is named.
long long UserStep::measure(const char* what, const char* path, bool counted, const char* owner) {
  const unsigned uid = owner == nullptr ? 0 : getUID(owner);
  if (!home_ || uid == kUnknownId) return 0;
  const AsRoot root;
  const std::optional<uid_t> only = owner == nullptr ? std::nullopt : std::optional<uid_t>(uid);
  const TreeSize size = measureBeneath(home_.folder.get(), path, only, deadline_);
  if (size.isCutShort) diskIsWhole_ = false;
  if (size.bytes > 0) disk_.du_detail(size.bytes, what, counted);
  return size.bytes;
}

long long UserStep::fileSizeOf(const std::string& path, bool counted) {
  const AsRoot root;
  struct stat what {};
  if (sys::lstat(path.c_str(), what) != 0 || !S_ISREG(what.st_mode) || what.st_size == 0) return 0;
  disk_.du_detail(what.st_size, path.c_str(), counted);
  return what.st_size;
}

bool UserStep::isOff() const {
  return record_.isValue("account", "OFF");
}

UsedAmount UserStep::amount(const char* key) const {
  return {amountOf(usage_, key), limitOf(record_, key, name_.c_str())};
}

}  // namespace zvtaskq
