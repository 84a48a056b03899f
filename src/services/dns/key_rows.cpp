#include "services/dns/key_rows.h"

#include <chrono>
#include <set>
#include <vector>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/task_queue.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/text/names.h"
#include "core/tree/folder_reader.h"
#include "services/dns/dkim_keys.h"
#include "services/dns/name_server.h"
#include "services/dns/zone_files.h"
#include "services/dns/zone_rewrite.h"

namespace zvtaskq {

namespace {

constexpr std::chrono::seconds kTimeForAll(120);

using Clock = std::chrono::steady_clock;

int makeKeys(const std::string& domain, bool rotates) {
  Text why;
  if (makeDkimKeys(domain, rotates, why)) return 1;
  errorLog("Error creating DKIM files for %s: %s", domain.c_str(), why.orEmpty());
  return 0;
}

/// Those of all domains, as far as the time goes; the rest is queued.
int makeAllKeys(const ConfigFile& owners, const Task& task) {
  const Clock::time_point end = Clock::now() + kTimeForAll;
  int done = 1;
  for (long long i = 0; i < owners.size(); ++i) {
    if (Clock::now() >= end) {
      // Where there is a new key already no other is made.
      ConfigFile more(nullptr);
      if (task.isOn("rotate")) more.setParam("rotate", "yes");
      static_cast<void>(pushOnTaskQueue("rewrite", "dkim", nullptr, &more));
      break;
    }
    const char* domain = owners.getNameAt(i);
    if (isValidDomain(domain)) done &= makeKeys(domain, task.isOn("rotate"));
    atSafePoint();
  }
  return done;
}

std::vector<std::string> orderedDomains(const Task& task) {
  std::vector<std::string> domains;
  if (task.getOrNull("domain") != nullptr) domains.emplace_back(task.get("domain"));
  for (int i = 0; task.getOrNull(joined("domain", std::to_string(i)).c_str()) != nullptr; ++i) {
    domains.emplace_back(task.get(joined("domain", std::to_string(i)).c_str()));
  }
  return domains;
}

/// The zones that the name server has keys of: "K<zone>.+<algorithm>+<id>.key".
std::vector<std::string> zonesWithKeys() {
  const AsRoot root;
  std::set<std::string> zones;
  FolderReader folder(zoneKeyFolder().c_str());
  while (const dirent* entry = folder ? folder.next() : nullptr) {
    const std::string_view name = entry->d_name;
    const std::size_t end = name.find(".+");
    if (!name.starts_with('K') || end == std::string_view::npos || !name.ends_with(".key")) continue;
    zones.emplace(name.substr(1, end - 1));
  }
  return {zones.begin(), zones.end()};
}

}  // namespace

int rewriteDkim(const Task& task) {
  if (!sys_conf->dkim) {
    errorLogAndDebug(10, "dkim is not enabled. Enable dkim=1 if you want to use it.");
    return 0;
  }
  if (isDemo()) return 1;
  ConfigFile owners(nullptr);
  const char* domain = task.getOrNull("domain");
  const char* shown = domain == nullptr ? "all domains" : domain;
  if (!readDomainOwners(owners)) {
    errorLog("Error creating DKIM files for %s: %s", shown, owners.result.orEmpty());
    return 0;
  }
  if (domain != nullptr && (!isValidDomain(domain) || !owners.existsParam(domain))) {
    errorLog("Error creating DKIM files for %s: it belongs to nobody", domain);
    return 0;
  }
  const int done = domain == nullptr ? makeAllKeys(owners, task) : makeKeys(domain, task.isOn("rotate"));
  Text why;
  if (rewriteZones({.domain = domain}, why)) return done;
  errorLog("Error addding DKIM to dns for %s: %s", shown, why.orEmpty());
  return 0;
}

int rewriteDnssec(const Task& task) {
  if (isDemo()) return 1;
  const Clock::time_point end = Clock::now() + kTimeForAll;
  std::vector<std::string> domains = orderedDomains(task);
  if (domains.empty()) domains = zonesWithKeys();
  int done = 1;
  for (const std::string& domain : domains) {
    Text why;
    if (Clock::now() >= end) {
      errorLog("Not all of %zu zones were signed anew: there was no time for more", domains.size());
      return 0;
    }
    if (!isValidDomain(domain.c_str()) || !tellNameServer({"sign", domain}, why)) {
      errorLog("Error signing %s: %s", domain.c_str(), why.isNull() ? "it is no domain name" : why.orEmpty());
      done = 0;
    }
    atSafePoint();
  }
  return done;
}

}  // namespace zvtaskq
