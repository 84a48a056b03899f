// What the data of accounts says of their zones.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/record/config_file.h"
#include "services/dns/zone_template.h"

namespace zvtaskq {

/// One zone to be made.
struct ZoneWish {
  const std::string& account;
  /// The domain that the zone belongs to, and the zone's own name: the domain, or one of its pointers.
  const std::string& domain;
  const std::string& zone;
  /// All tokens but the serial and the keys.
  const ZoneValues& values;
};

/// Who learns of what was found.
struct ZoneSink {
  std::function<void(const ZoneWish& wish)> take;
  /// A value that no zone can have: whose, which field, why.
  std::function<void(const std::string& account, const std::string& domain, const std::string& field,
                     const std::string& why)>
      refuse;
  /// The data of a domain, or with an empty domain of the whole account, could not be read; the error log says so.
  std::function<void(const std::string& account, const std::string& domain)> keep;
};

/// Goes through domains and their accounts. What many domains share is read once.
class ZoneData {
 public:
  /// 0 with the reason in `result` when the table of domain owners cannot be read.
  [[nodiscard]] int read(Text& result);
  const ConfigFile& owners() const { return owners_; }
  /// The zones of one domain: its own, and those of its pointers. Works under the panel's identity.
  void tell(const char* domain, const ZoneSink& sink);
  /// Of all domains.
  void tellAll(const ZoneSink& sink);

 private:
  struct Account {
    bool isReadable = false;
    std::string ip;
    std::vector<std::string> nameServers;
  };
  struct Linked {
    std::vector<std::string> ipv4;
    std::vector<std::string> ipv6;
  };

  const Account& accountOf(const std::string& name);
  /// Those of the account, of who made it, of the panel, or the server itself.
  std::vector<std::string> nameServersOf(const ConfigFile& account);
  const Linked& addressesOf(const std::string& ip);
  [[nodiscard]] bool fillValues(const Account& account, const std::string& name, const std::string& domain,
                                const ConfigFile& record, ZoneValues& values, const ZoneSink& sink);
  void tellPointers(const std::string& account, const std::string& domain, ZoneValues& values, const ZoneSink& sink);
  void tellZone(const ZoneWish& wish, ZoneValues& values, const ZoneSink& sink);

  ConfigFile owners_{nullptr};
  std::map<std::string, Account, std::less<>> accounts_;
  std::map<std::string, std::vector<std::string>, std::less<>> creators_;
  std::map<std::string, Linked, std::less<>> addresses_;
  /// A zone there is once, whoever else has a pointer of that name.
  std::set<std::string> told_;
  std::string serverAddress_;
};

}  // namespace zvtaskq
