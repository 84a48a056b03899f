// The mail server's table of domains to the addresses that their mail is sent from.
#include <map>
#include <set>
#include <string>

#include "account/model/account_record.h"
#include "account/model/server_address.h"
#include "account/upkeep/mail_table.h"
#include "account/upkeep/rows.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {

constexpr const char* kTable = "domainips";
/// What the mail server takes for every domain that has no line of its own.
constexpr const char* kEveryOther = "*";

class DomainIps {
 public:
  explicit DomainIps(const ConfigFile& owners) : owners_(owners) {}

  /// Adds the domain and its pointers. 0 with an error-log line when its address cannot be told.
  int add(const char* domain) {
    const char* owner = owners_.getValue(domain);
    ConfigFile record(nullptr);
    // A record is replaced as a whole: who only looks needs no lock.
    record.useLock = false;
    if (!readDomain(owner, domain, record)) {
      errorLog("%s of %.100s: %s", domain, owner, record.result.orEmpty());
      return undecided(domain);
    }
    const char* own = record.getValue("ip");
    const bool hasOwn = own != nullptr && *own != '\0';
    const std::string& ip = hasOwn ? own : ipOfAccount(owner);
    if (!isValidIP(ip.c_str())) {
      const std::string where = hasOwn ? std::string(record.getFilename()) : accountFile(owner, "user.conf");
      errorLog("'%s' is not a valid IP from %s", ip.c_str(), where.c_str());
      return undecided(domain);
    }
    table.setParam(domain, ip.c_str());
    return addPointers(owner, domain, ip.c_str());
  }

  /// Whether the address of a domain could not be told, so that what the table says of it stays.
  bool isUndecided(const char* domain) const { return undecided_.contains(std::string_view(domain)); }

  ConfigFile table{nullptr};

 private:
  int undecided(const char* domain) {
    undecided_.emplace(domain);
    return 0;
  }

  int addPointers(const char* owner, const char* domain, const char* ip) {
    ConfigFile pointers(nullptr);
    pointers.useLock = false;
    if (!readPointers(owner, domain, pointers)) return 0;
    for (long long i = 0; i < pointers.size(); ++i) {
      const char* pointer = pointers.getNameAt(i);
      if (!isValidDomain(pointer)) {
        errorLog("%s: %.100s is no domain", pointers.getFilename(), pointer);
      } else if (!owners_.existsParam(pointer) || owners_.isValue(pointer, owner)) {
        // What is somebody else's domain by now is no pointer of this one.
        if (!table.existsParam(pointer)) table.setParam(pointer, ip);
      }
    }
    return 1;
  }

  const std::string& ipOfAccount(const char* account) {
    const auto [found, isNew] = ips_.try_emplace(account);
    if (!isNew) return found->second;
    ConfigFile record(nullptr);
    record.useLock = false;
    if (!readAccount(account, record)) errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
    return found->second = record.getOrEmpty("ip");
  }

  const ConfigFile& owners_;
  std::map<std::string, std::string, std::less<>> ips_;
  std::set<std::string, std::less<>> undecided_;
};

int readOwners(ConfigFile& owners) {
  if (readDomainOwners(owners)) return 1;
  errorLog("%s: %s", owners.getFilename(), owners.result.orEmpty());
  return 0;
}

int rewriteOne(const char* domain, const ConfigFile& owners) {
  if (!owners.existsParam(domain)) {
    errorLog("Cannot find %s in %s", domain, owners.getFilename());
    return 0;
  }
  DomainIps ips(owners);
  const int told = ips.add(domain);
  return ips.table.size() == 0 ? told : writeMailTable(kTable, ips.table, [](const char*) { return true; }) && told;
}

int rewriteAll(const ConfigFile& owners) {
  DomainIps ips(owners);
  int told = 1;
  {
    // Taken once, and not anew for every file.
    const AsUser panel(kPanelUser);
    for (long long i = 0; i < owners.size(); ++i) {
      told &= ips.add(owners.getNameAt(i));
      atSafePoint();
    }
  }
  const std::string server = sys_conf->domainips_default_ip ? mainServerAddress() : "";
  if (!server.empty()) ips.table.setParam(kEveryOther, server.c_str());
  // What was added to both tables meanwhile stays as well.
  ConfigFile now(nullptr);
  if (!readOwners(now)) return 0;
  const auto stays = [&](const char* name) {
    return ips.isUndecided(name) || (now.existsParam(name) && !owners.existsParam(name));
  };
  return writeMailTable(kTable, ips.table, stays) && told;
}

}  // namespace

int rewriteDomainIps(const Task& task) {
  if (isDemo()) return 1;
  ConfigFile owners(nullptr);
  if (!readOwners(owners)) return 0;
  const char* domain = task.getOrNull("domain");
  return domain == nullptr ? rewriteAll(owners) : rewriteOne(domain, owners);
}

}  // namespace zvtaskq
