#include "services/web/php_limits.h"

#include <strings.h>

#include <cerrno>
#include <vector>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

constexpr const char* kFile = "php_limits";
constexpr const char* kBasedir = "open_basedir";
constexpr const char* kSafeMode = "safemode";
constexpr const char* kOn = "ON";
constexpr const char* kOff = "OFF";

/// Whether a switch is on; one that says neither is as it is in general.
bool isOn(const char* value, bool inGeneral) {
  if (value == nullptr) return inGeneral;
  return inGeneral ? ::strcasecmp(value, kOff) != 0 : ::strcasecmp(value, kOn) == 0;
}

PhpLimits limitsIn(const ConfigFile& record, const PhpLimits& inGeneral) {
  return {isOn(record.getValue(kBasedir), inGeneral.openBasedir), isOn(record.getValue(kSafeMode), inGeneral.safeMode)};
}

/// Of new domains.
PhpLimits limitsOfNew() {
  return {isOn(sys_conf->open_basedir, true), isOn(sys_conf->safemode, false)};
}

std::string lineOf(const PhpLimits& limits) {
  std::string line;
  addPair(line, kBasedir, limits.openBasedir ? kOn : kOff);
  addPair(line, kSafeMode, limits.safeMode ? kOn : kOff);
  return line;
}

/// 0 when a record cannot be read.
int limitsOf(const char* account, PhpLimits& limits) {
  std::vector<std::string> domains;
  Text why;
  if (!readDomains(account, domains, why)) return 0;
  const PhpLimits ofNew = limitsOfNew();
  limits = domains.empty() ? ofNew : PhpLimits{false, false};
  for (const std::string& domain : domains) {
    ConfigFile record(nullptr);
    if (!readDomain(account, domain.c_str(), record)) return 0;
    const PhpLimits own = limitsIn(record, ofNew);
    limits = {limits.openBasedir || own.openBasedir, limits.safeMode || own.safeMode};
  }
  return 1;
}

/// The list as it is to be, with the lines of `before` for those who cannot be read.
void fillList(const ListFile& accounts, const ConfigFile& before, ConfigFile& list) {
  for (int i = 0; i < accounts.size(); ++i) {
    const char* account = accounts.getElementAt(i);
    PhpLimits limits;
    if (limitsOf(account, limits)) {
      list.setParam(account, lineOf(limits).c_str());
    } else {
      errorLog("%s: a record of its domains cannot be read, what its PHP may do stays as it was", account);
      const char* line = before.getValue(account);
      list.setParam(account, line != nullptr ? line : lineOf({true, true}).c_str());
    }
    atSafePoint();
  }
}

/// Whether it is there, whoever may read it.
bool isThere(const PanelRecord& list) {
  const AsUser panel(kPanelUser);
  struct stat what {};
  return sys::lstat(list.getFilename(), what) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

bool areEqual(const ConfigFile& a, const ConfigFile& b) {
  return a.createPostString(1).view() == b.createPostString(1).view();
}

}  // namespace

PhpLimitList::PhpLimitList() : list_(stateFile(kFile)) {
  list_.useLock = false;
  if (list_.readFile()) return;
  list_.empty();
  isKnown_ = !isThere(list_);
  if (!isKnown_) errorLog("%s, pools of PHP stay as they are", list_.result.orEmpty());
}

PhpLimits PhpLimitList::of(const char* account) const {
  const PhpLimits ofNew = limitsOfNew();
  const char* line = list_.getValue(account);
  if (line == nullptr) return ofNew;
  ConfigFile record(nullptr);
  record.fillFromPost(line);
  return limitsIn(record, ofNew);
}

int rebuildPhpLimits() {
  if (isDemo()) return 1;
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) {
    errorLog("Unable to read the accounts");
    return 0;
  }
  PanelRecord list(stateFile(kFile));
  // A list that cannot be read is made anew.
  if (!list.readFile()) list.empty();
  ConfigFile before(nullptr);
  before.fill(&list);
  list.empty();
  fillList(accounts, before, list);
  if (areEqual(before, list)) return 1;
  if (!openStateFolder() || !list.writeFile()) {
    errorLog("Unable to write %s: %s", list.getFilename(), list.result.orEmpty());
    return 0;
  }
  queueTask("rewrite", "httpd");
  return 1;
}

int forgetPhpLimits(const char* account, Text& result) {
  PanelRecord list(stateFile(kFile));
  list.useLock = false;
  if (list.readFile() ? !list.existsParam(account) : !isThere(list)) return 1;
  return changeRecord(
      stateFile(kFile), [account](ConfigFile& record) { record.deleteParam(account); }, result);
}

}  // namespace zvtaskq
