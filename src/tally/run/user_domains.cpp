// The domains of an account in its step of a tally.
#include <ctime>
#include <set>

#include "account/model/account_record.h"
#include "account/model/limits.h"
#include "account/suspension/suspension.h"
#include "core/config/config.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/ticket.h"
#include "tally/logs/domain_rotation.h"
#include "tally/logs/web_logs.h"
#include "tally/logs/web_statistics.h"
#include "tally/run/tally_run.h"
#include "tally/run/user_step.h"
#include "tally/traffic/ftp_traffic.h"

namespace zvtaskq {

namespace {

constexpr int kGeneral = 1;

/// "2026-11", the month of now.
std::string monthOfNow() {
  const std::time_t now = std::time(nullptr);
  std::tm today{};
  ::localtime_r(&now, &today);
  char text[16];
  return {text, std::strftime(text, sizeof text, "%Y-%m", &today)};
}

}  // namespace

/// First what is the panel's to read, then all that root is needed for, then what follows from it: an identity costs as
/// much as a file.
void UserStep::visitDomains() {
  std::vector<ByteSums> traffic(domains_.size());
  std::vector<std::vector<std::string>> subdomains(domains_.size());
  for (std::size_t i = 0; i < domains_.size(); ++i) {
    // Without the list the domain itself is tallied: the error log says so.
    if (!readSubdomains(name_.c_str(), domains_[i].c_str(), subdomains[i])) subdomainsAreWhole_ = false;
    nsubdomains_ += std::set<std::string_view>(subdomains[i].begin(), subdomains[i].end()).size();
  }
  {
    const AsRoot root;
    measureMail();
    if (bill_ != nullptr && run_.ftpIsRead()) traffic_.ftp = getFtpTotal(*bill_);
    for (std::size_t i = 0; i < domains_.size(); ++i) visitDomain(domains_[i], subdomains[i], traffic[i]);
  }
  if ((mask_ & (kTallyBandwidth | kTallySuspend)) == 0) return;
  std::vector<double> used;
  for (std::size_t i = 0; i < domains_.size(); ++i) used.push_back(keepDomainUsage(domains_[i], traffic[i].total));
  // In place before the line that bills it.
  if (!batch_.commit()) outcome_ = 0;
  for (std::size_t i = 0; i < domains_.size(); ++i) checkDomainLimits(domains_[i], used[i]);
}

void UserStep::visitDomain(const std::string& domain, const std::vector<std::string>& subdomains, ByteSums& traffic) {
  visitHost(domain.c_str(), nullptr, traffic);
  for (const std::string& subdomain : subdomains) visitHost(domain.c_str(), subdomain.c_str(), traffic);
  traffic_.down += traffic.total - traffic.upload;
  traffic_.up += traffic.upload;
  if (run_.wants(kTallyDisk)) measureDomain(joined("domains/", domain));
}

/// Files in a domain's folder that are not the account's, and so not in its quota.
void UserStep::measureDomain(const std::string& folder) {
  apacheFiles_ +=
      static_cast<double>(measure(joined("files owned by apache in ", folder).c_str(), folder.c_str(), true, "apache"));
  const std::string anonymous = joined(folder, "/public_ftp");
  anonymousFtp_ += static_cast<double>(
      measure(joined("files owned by nobody in ", anonymous).c_str(), anonymous.c_str(), true, "nobody"));
}

void UserStep::visitHost(const char* domain, const char* subdomain, ByteSums& traffic) {
  const std::string host = hostOf(domain, subdomain);
  if (host.empty()) return;
  if (bill_ != nullptr) {
    const ByteSums sums = bill_->host(host);
    traffic.total += sums.total;
    traffic.upload += sums.upload;
  }
  const Config& conf = run_.conf;
  if (run_.wants(kTallyStatistics)) {
    if (run_.hasWebalizer()) static_cast<void>(doWebalizer(&conf, name_.c_str(), domain, subdomain, time_));
    if (conf.awstats) static_cast<void>(doAwstats(&conf, name_.c_str(), domain, subdomain, time_));
  }
  if (run_.wants(kTallyDisk) && !conf.simple_disk_usage) {
    for (const WebLog& log : webLogsOf(conf, host)) {
      FolderNames& names = run_.namesIn(log.folder, ".log");
      for (const char* ending : {".log", ".error.log"}) {
        const std::string name = log.base + ending;
        if (names.mayHave(name)) fileSizeOf(joined(log.folder, "/", name), false);
      }
    }
  }
  if (run_.wants(kTallyHousekeeping)) static_cast<void>(rotateLogs(&conf, name_.c_str(), domain, subdomain));
}

/// The domain's traffic of the month grows with each tally. What a killed tally noted there for logs that this one
/// bills is taken back first: "before" is what stood there before the tally of "stamp". Returns the megabytes.
double UserStep::keepDomainUsage(const std::string& domain, double bytes) {
  ConfigFile usage(nullptr);
  usage.setFilename(domainFile(name_.c_str(), domain.c_str(), "usage").c_str());
  usage.belongsTo(kPanelUser);
  usage.useLock = false;
  usage.batch = &batch_;
  // One that is not there, or holds nonsense, begins anew.
  static_cast<void>(usage.readFile());
  if (bill_ == nullptr) return amountOf(usage, "bandwidth");
  const std::string month = monthOfNow();
  long long stamp = 0;
  static_cast<void>(usage.getValue("stamp", &stamp));
  const bool isTakenBack = bill_->takenOver().contains(stamp);
  const bool isThisMonth = usage.isValue("month", month.c_str()) != 0;
  if (isThisMonth && !isTakenBack && bytes <= 0) return amountOf(usage, "bandwidth");
  const double before = isThisMonth ? amountOf(usage, isTakenBack ? "before" : "bandwidth") : 0;
  usage.setParam("month", month.c_str());
  usage.setParam("before", before, kMegabyteForm);
  usage.setParam("stamp", run_.byteLogs()->stamp());
  usage.setParam("bandwidth", before + bytes / kMegabyte, kMegabyteForm);
  if (!usage.writeFile()) {
    errorLog("Error writing %s: %s", usage.getFilename(), usage.result.orEmpty());
    outcome_ = 0;
  }
  return amountOf(usage, "bandwidth");
}

void UserStep::checkDomainLimits(const std::string& domain, double used) {
  ConfigFile record(nullptr);
  if (!readDomain(name_.c_str(), domain.c_str(), record)) {
    errorLog("Unable to read %s of account %s: %s", record.getFilename() == nullptr ? "" : record.getFilename(),
             name_.c_str(), record.result.orEmpty());
    return;
  }
  const UsedAmount traffic{used, limitOf(record, "bandwidth", name_.c_str())};
  const bool isOver = traffic.limit.amount > 0 && traffic.used > traffic.limit.amount;
  Text words;
  if (isOver && !record.isValue("suspended", "yes") &&
      !suspendDomain(name_.c_str(), domain.c_str(), "domain_bandwidth", words)) {
    errorLog("%s", words.orEmpty());
  }
  checkDomainQuota(domain, record);
}

void UserStep::checkDomainQuota(const std::string& domain, ConfigFile& record) {
  const Limit limit = limitOf(record, "quota", name_.c_str());
  if (limit.isUnlimited || !home_ || !run_.wants(kTallyDisk)) return;
  const std::string folder = joined("domains/", domain);
  TreeSize size;
  {
    const AsRoot root;
    size = measureBeneath(home_.folder.get(), folder.c_str(), {}, deadline_);
  }
  if (size.isCutShort) return;
  const double used = static_cast<double>(size.bytes) / kMegabyte;
  const bool isOver = limit.amount > 0 && used > limit.amount;
  const std::string shown = oneDigit(used);
  const std::string path = joined("domains/", domain, ".conf");
  if (!isOver && !record.existsParam("used")) return;
  static_cast<void>(setAccountValue(name_.c_str(), path.c_str(), "used", isOver ? shown.c_str() : nullptr));
  if (!isOver) return;
  const std::string subject = joined("Domain ", domain, " has used up all of its disk space.");
  const std::string body = joined("This is an automated message notifying user ", name_, " that the domain ", domain,
                                  " has used up more than its assigned disk space.  ", shown,
                                  " megabytes have been used from its available ", record.getValue("quota"),
                                  ".  You should either increase the maximum limit, or suspend the domain.\n",
                                  "User Level -> Domain Setup -> ", domain, " -> Same as Main Account");
  Ticket ticket;
  static_cast<void>(ticket.notifyAdmins("", subject.c_str(), body.c_str(), kGeneral));
}

}  // namespace zvtaskq
