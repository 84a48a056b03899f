#include "tally/run/reset.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "account/model/account_lock.h"
#include "account/model/account_record.h"
#include "account/suspension/suspension.h"
#include "core/config/config.h"
#include "core/files/append_file.h"
#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/panel/panel_paths.h"
#include "core/read/line_reader.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"
#include "tally/logs/web_logs.h"
#include "tally/traffic/account_bill.h"
#include "tally/traffic/tally_file.h"

namespace zvtaskq {

namespace {

constexpr const char* kTallyFiles[] = {"bandwidth.tally", "bandwidth.reseller.tally"};
constexpr const char* kCounters[] = {"bandwidth", "email_deliveries", "email_deliveries_incoming",
                                     "email_deliveries_outgoing"};
constexpr const char* kTrafficReasons = "bandwidth,domain_bandwidth";
constexpr std::size_t kMonthsKept = 24;
constexpr std::size_t kMostHistory = 1UL << 30;

bool isThere(const std::string& path) {
  struct stat what {};
  return sys::lstat(path.c_str(), what) == 0;
}

int complain(const std::string& path, const char* why) {
  errorLog("Unable to reset %s: %s", path.c_str(), why);
  return 0;
}

// --- Records ---------------------------------------------------------------------------------------------------

/// Changes a record that is there.
int changeIfThere(const std::string& path, const std::function<void(ConfigFile&)>& change) {
  Text words;
  return !isThere(path) || changeRecord(path, change, words) ? 1 : complain(path, words.orEmpty());
}

void clearCounters(ConfigFile& usage) {
  for (const char* key : kCounters) {
    if (usage.existsParam(key)) usage.setParam(key, 0);
  }
  usage.deleteParam("stamp");
  usage.deleteParam("before");
}

int forgetWarning(const std::string& path) {
  return changeIfThere(path, [](ConfigFile& record) {
    record.deleteParam("sentwarning");
    record.deleteParam("used");
  });
}

int resetDomain(const char* account, const std::string& domain) {
  int whole = changeIfThere(domainFile(account, domain.c_str(), "usage"), clearCounters);
  whole &= forgetWarning(domainFile(account, domain.c_str(), "conf"));
  Text words;
  if (activateDomain(account, domain.c_str(), "domain_bandwidth", words)) return whole;
  return complain(domain, words.orEmpty());
}

// --- Tally files -----------------------------------------------------------------------------------------------

/// "2026-11", the month of a file's last line; of now when its lines say nothing.
std::string monthOf(const std::string& text) {
  long long last = std::time(nullptr);
  std::string_view rest = text, line;
  TallyRecord record;
  TallyLine parts;
  while (nextLine(rest, line)) {
    if (!readTallyLine(line, parts)) continue;
    record.read(parts.record);
    const double time = record.number("time");
    if (time > 0 && time < 1e11) last = static_cast<long long>(time);
  }
  const std::time_t when = last;
  std::tm local{};
  ::localtime_r(&when, &local);
  char month[16];
  return {month, std::strftime(month, sizeof month, "%Y-%m", &local)};
}

/// Deletes the oldest of a tally file's months.
void dropOldMonths(const std::string& folder, const std::string& file) {
  std::vector<std::string> months;
  FolderReader entries(folder.c_str());
  while (const dirent* entry = entries ? entries.next() : nullptr) {
    const std::string_view name = entry->d_name;
    const bool isMonth = name.starts_with(file + ".") && name.size() == file.size() + 8 && name[file.size() + 5] == '-';
    if (isMonth) months.emplace_back(name);
  }
  std::sort(months.rbegin(), months.rend());
  for (std::size_t i = kMonthsKept; i < months.size(); ++i) {
    const std::string path = joined(folder, "/", months[i]);
    if (sys::unlink(path.c_str()) != 0) static_cast<void>(complain(path, std::strerror(errno)));
  }
}

/// Adds the lines to their month, unless a reset that was killed has done so.
int keepLines(const std::string& path, const std::string& text) {
  const std::string month = joined(path, ".", monthOf(text));
  if (!isThere(month)) return sys::rename(path.c_str(), month.c_str()) == 0 ? 1 : complain(path, std::strerror(errno));
  std::string kept;
  const Descriptor file = openRegularFile(month.c_str());
  if (!file || !sys::readAll(file.get(), kept, kMostHistory)) return complain(month, std::strerror(errno));
  if (kept.ends_with(text)) return 1;
  return appendLines(month.c_str(), text, "resetUsage") == Appended::done ? 1 : complain(month, std::strerror(errno));
}

int emptyTallyFile(const std::string& path, History history) {
  const AsRoot root;
  if (!isThere(path)) return 1;
  FileLock lock;
  if (!lock.take(path.c_str(), kLockMaximumAge, "resetUsage", nullptr)) return complain(path, "it is locked");
  std::string text;
  const Descriptor file = openRegularFile(path.c_str());
  if (!file || !sys::readAll(file.get(), text, kMostHistory)) return complain(path, std::strerror(errno));
  if (history == History::keep && !text.empty() && !keepLines(path, text)) return 0;
  if (sys::unlink(path.c_str()) != 0 && errno != ENOENT) return complain(path, std::strerror(errno));
  return 1;
}

int emptyTallyFiles(const char* account, History history) {
  int whole = 1;
  for (const char* file : kTallyFiles) {
    whole &= emptyTallyFile(accountFile(account, file), history);
    const AsRoot root;
    dropOldMonths(accountFile(account, nullptr), file);
  }
  const AsRoot root;
  const std::string cache = accountFile(account, "bandwidth.tally.cache");
  if (sys::unlink(cache.c_str()) == 0 || errno == ENOENT) return whole;
  return complain(cache, std::strerror(errno));
}

/// What the tally files say of byte logs is needed no more.
int settle(ByteLogs& logs, const char* account, const std::vector<std::string>& domains) {
  std::vector<std::string> hosts;
  for (const std::string& domain : domains) {
    hosts.push_back(hostOf(domain.c_str(), nullptr));
    std::vector<std::string> subdomains;
    static_cast<void>(readSubdomains(account, domain.c_str(), subdomains));
    for (const std::string& name : subdomains) hosts.push_back(hostOf(domain.c_str(), name.c_str()));
  }
  AccountBill bill(logs, account);
  return bill.settle(hosts);
}

// --- Accounts --------------------------------------------------------------------------------------------------

int resetAccount(ByteLogs& logs, const char* account, History history) {
  const AccountLock lock(account, kAccountLockWait);
  if (!lock.held()) return complain(accountFile(account, nullptr), "it is busy");
  std::vector<std::string> domains;
  Text why;
  if (!readDomains(account, domains, why)) return complain(accountFile(account, "domains.list"), why.orEmpty());
  if (!settle(logs, account, domains)) return 0;
  int whole = emptyTallyFiles(account, history);
  for (const char* usage : {"user.usage", "reseller.usage"}) {
    whole &= changeIfThere(accountFile(account, usage), clearCounters);
  }
  for (const char* record : {"user.conf", "reseller.conf"}) whole &= forgetWarning(accountFile(account, record));
  for (const std::string& domain : domains) whole &= resetDomain(account, domain);
  Text words;
  if (dropSuspensionReasons(account, kTrafficReasons, words)) return whole;
  return complain(accountFile(account, "user.conf"), words.orEmpty());
}

int resetAccounts(const Config& conf, const ListFile& accounts, History history) {
  const AsUser panel(kPanelUser);
  ByteLogs logs(conf);
  if (!logs.begin([](std::string_view) { return true; }, ByteLogs::Current::stays)) return 0;
  int whole = 1;
  for (int i = 0; i < accounts.size(); ++i) {
    whole &= resetAccount(logs, accounts.getElementAt(i), history);
  }
  return whole;
}

}  // namespace

int resetUsage(const Config& conf, History history) {
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) return complain(conf.userdata.orEmpty(), std::strerror(errno));
  const int whole = resetAccounts(conf, accounts, history);
  return changeIfThere(adminFile("admin.usage"), clearCounters) & whole;
}

int resetUsageOf(const Config& conf, const char* account, History history) {
  ConfigFile record(nullptr);
  if (!readAccount(account, record)) return complain(accountFile(account, "user.conf"), record.result.orEmpty());
  ListFile accounts(nullptr);
  accounts.addElement(account);
  return resetAccounts(conf, accounts, history);
}

}  // namespace zvtaskq
