// Writing the mail filters of accounts, and giving them the settings that they begin with.
#include <cerrno>
#include <cstring>

#include "account/filters/actions.h"
#include "account/filters/filter_text.h"
#include "account/model/account_holder.h"
#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "account/upkeep/each_account.h"
#include "account/upkeep/rows.h"
#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "mail/mail_files.h"
#include "mail/server_tables.h"

namespace zvtaskq {

namespace {

constexpr const char* kDefaults = "spam_defaults.conf";
constexpr const char* kFilters = "the mail filters";
constexpr const char* kSpam = "the default spam settings";
/// By this a filter of ours is known; what somebody else wrote stays when there is nothing to filter.
constexpr std::string_view kOurs = "Written by the panel";
constexpr mode_t kMode = 0640;

std::string recordName(const std::string& domain) {
  return joined("domains/", domain, ".filter");
}

/// The filters of one domain after another.
class Filters {
 public:
  [[nodiscard]] int begin(Text& result) { return template_.read(result); }

  [[nodiscard]] int write(const char* account, const std::string& domain, bool hasSpam, Text& result) const {
    ConfigFile record(nullptr);
    FilterSettings settings;
    if (!readAccountFile(account, recordName(domain).c_str(), record)) return fail(result, record.result);
    if (!settings.read(record, result)) return 0;
    if (!hasSpam) settings.dropSpam();
    const std::string path = mailFile(joined(domain, "/filter"));
    std::string present, text;
    Text unreadable;
    const bool isKnown = readWhole(path, idsOf(kMailUser), present, unreadable) != 0;
    if (settings.isEmpty()) return present.find(kOurs) == std::string::npos || remove(path, result);
    if (!template_.fill(domain, settings, text, result)) return 0;
    // A link, or whatever else stands there, is replaced.
    return (isKnown && present == text) || writeWhole(path, idsOf(kMailUser), text, kMode, result);
  }

 private:
  static int remove(const std::string& path, Text& result) {
    const AsUser mail(kMailUser);
    if (sys::unlink(path.c_str()) == 0 || errno == ENOENT) return 1;
    return fail(result, "Unable to remove ", path, ": ", std::strerror(errno));
  }

  FilterTemplate template_;
};

bool hasMailFolder(const std::string& domain) {
  const AsUser mail(kMailUser);
  return openMailPath(domain, O_PATH | O_DIRECTORY).isOpen();
}

int tell(const char* account, const Text& result) {
  errorLog("The mail filters of %s: %s", account, result.orEmpty());
  return 0;
}

int writeAll(const char* account, const Filters& filters) {
  ConfigFile record(nullptr);
  AccountHolder holder;
  Text result;
  if (!readAccount(account, record)) return tell(account, record.result);
  if (!findHolder(account, holder, result)) return tell(account, result);
  int done = 1;
  for (const std::string& domain : holder.domains) {
    Text why;
    if (!hasMailFolder(domain) || filters.write(account, domain, !record.isValue("spam", "OFF"), why)) continue;
    done = tell(domain.c_str(), why);
  }
  return done;
}

int writeFilters(const char* only) {
  if (isDemo() || !hasMailServer()) return 1;
  Filters filters;
  Text result;
  if (!filters.begin(result)) return tell("all accounts", result);
  return forEachAccount(only, kFilters, [&](const char* account) { return writeAll(account, filters); });
}

int rewriteFilters(const Task& task) {
  return writeFilters(task.getOrNull("user"));
}

int readDefaults(ConfigFile& defaults, Text& result) {
  const std::string path = templatePath(*sys_conf, kDefaults);
  const AsRoot root;
  ConfigFile read(path.c_str());
  read.useLock = false;
  FilterSettings settings;
  if (!read.readFile()) return fail(result, read.result);
  for (long long i = 0; i < read.size(); ++i) defaults.setParam(read.getNameAt(i), read.getValueAt(i));
  return settings.read(defaults, result) || fail(result, path, " is no set of spam settings");
}

/// Gives a domain the settings; with `onlyMissing` those that it says nothing of.
int setDefaults(const char* account, const std::string& domain, const ConfigFile& defaults, bool onlyMissing,
                Text& result) {
  PanelRecord record(accountFile(account, recordName(domain).c_str()));
  const RecordLock lock(record);
  ConfigFile present(nullptr);
  present.useLock = false;
  if (!readAccountFile(account, recordName(domain).c_str(), present)) return fail(result, present.result);
  bool changed = false;
  for (long long i = 0; i < defaults.size(); ++i) {
    const char* key = defaults.getNameAt(i);
    if (present.existsParam(key) && (onlyMissing || present.isValue(key, defaults.getValueAt(i)))) continue;
    present.setParam(key, defaults.getValueAt(i));
    changed = true;
  }
  if (!changed) return 1;
  for (long long i = 0; i < present.size(); ++i) record.setParam(present.getNameAt(i), present.getValueAt(i));
  return record.writeFile() ? 1 : fail(result, record.result);
}

int addSpam(const Task&) {
  if (isDemo()) return 1;
  ConfigFile defaults(nullptr);
  Text result;
  if (!readDefaults(defaults, result)) return tell("all accounts", result);
  const auto add = [&](const char* account) {
    AccountHolder holder;
    Text why;
    int done = findHolder(account, holder, why);
    for (const std::string& domain : holder.domains) done &= setDefaults(account, domain, defaults, true, why);
    return done != 0 ? 1 : tell(account, why);
  };
  const int added = forEachAccount(nullptr, kSpam, add);
  return writeFilters(nullptr) & added;
}

int addSpamAndOptions(const Task& task) {
  return addOptions(task) & addSpam(task);
}

int refuseDefaultSpam(const char* domain, const char* why) {
  errorLog("Error with default spam for %s: %s", domain, why);
  return 0;
}

/// Of a domain that is the user's by his list.
int giveDefaultSpam(const char* domain, const char* user) {
  if (isDemo()) return 1;
  ConfigFile defaults(nullptr), owners(nullptr);
  owners.useLock = false;
  Text result;
  if (!readDefaults(defaults, result)) return refuseDefaultSpam(domain, result.orEmpty());
  if (!readDomainOwners(owners)) return refuseDefaultSpam(domain, owners.result.orEmpty());
  if (isOthersDomain(owners, user, domain)) return refuseDefaultSpam(domain, "it belongs to another account");
  const auto give = [&](const char* account) {
    Text why;
    return setDefaults(account, domain, defaults, false, why) ? 1 : refuseDefaultSpam(domain, why.orEmpty());
  };
  return forEachAccount(user, kSpam, give) && writeFilters(user);
}

int applyDefaultSpam(const Task& task) {
  const char* domain = task.get("domain");
  const char* user = task.get("username");
  if (!isValidDomain(domain)) return refuseDefaultSpam(domain, "invalid domain name");
  if (!isAccountName(user)) return refuseDefaultSpam(domain, "invalid user name");
  const std::string path = accountFile(user, "domains.list");
  PanelList domains(path);
  if (!domains.readFile()) {
    errorLog("Unable to read %s under user %s for default spam: %s", path.c_str(), user, domains.result.orEmpty());
    return 0;
  }
  if (domains.existElement(domain)) return giveDefaultSpam(domain, user);
  errorLog("%s isn't in %s for default spam.  Username: %s", domain, path.c_str(), user);
  return 0;
}

constexpr ActionRow kRows[] = {
    {"addspam", nullptr, nullptr, addSpam, "gives every domain the default spam settings that it says nothing of"},
    {"addoptions", nullptr, nullptr, addSpamAndOptions,
     "the same, and gives every account the features its record says nothing of"},
    {"rewrite", "value", "filter", rewriteFilters, "rewrites the mail filters of a user or all"},
    {"defaultspam", nullptr, nullptr, applyDefaultSpam, "applies the default spam settings to a domain"},
};

}  // namespace

ActionRows filterActions() {
  return kRows;
}

}  // namespace zvtaskq
