#include "services/dns/zone_data.h"

#include "account/model/account_record.h"
#include "account/model/addresses.h"
#include "account/model/server_address.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/text/names.h"
#include "services/dns/record_rules.h"

namespace zvtaskq {

namespace {

constexpr const char* kNameServers[] = {"ns1", "ns2"};

void addNameServers(const ConfigFile& record, std::vector<std::string>& names) {
  for (const char* key : kNameServers) {
    if (*record.getOrEmpty(key) != '\0') names.emplace_back(record.getOrEmpty(key));
  }
}

/// The names of those name servers that are in the zone.
std::vector<std::string> hostsIn(const std::string& zone, const std::vector<std::string>& nameServers) {
  const std::string below = joined(".", zone);
  std::vector<std::string> hosts;
  for (const std::string& name : nameServers) {
    if (name.size() > below.size() && name.ends_with(below))
      hosts.push_back(name.substr(0, name.size() - below.size()));
  }
  return hosts;
}

std::string spfFor(const std::string& serverAddress) {
  std::string text = "v=spf1 a mx";
  if (!serverAddress.empty()) text.append(" ip4:").append(serverAddress);
  const std::string_view extra = trimmed(sys_conf->extra_spf_value.view());
  if (!extra.empty()) text.append(" ").append(extra);
  return text.append(" ~all");
}

bool isPlain(std::string_view text) {
  for (const char c : text) {
    if (c < ' ' || c > '~' || c == '|') return false;
  }
  return true;
}

}  // namespace

int ZoneData::read(Text& result) {
  if (!readDomainOwners(owners_)) return fail(result, owners_.getFilename(), ": ", owners_.result);
  serverAddress_ = mainServerAddress();
  return 1;
}

std::vector<std::string> ZoneData::nameServersOf(const ConfigFile& account) {
  std::vector<std::string> names;
  addNameServers(account, names);
  const char* creator = account.getOrEmpty("creator");
  const auto [found, isNew] = creators_.try_emplace(creator);
  if (isNew) {
    ConfigFile record(nullptr);
    if (readAccountFile(creator, "reseller.conf", record)) addNameServers(record, found->second);
  }
  if (names.empty()) names = found->second;
  if (!names.empty()) return names;
  for (const Text* setting : {&sys_conf->ns1, &sys_conf->ns2}) {
    if (!setting->isEmpty()) names.emplace_back(setting->view());
  }
  if (names.empty()) names.emplace_back(sys_conf->servername.orEmpty());
  return names;
}

const ZoneData::Account& ZoneData::accountOf(const std::string& name) {
  const auto [found, isNew] = accounts_.try_emplace(name);
  if (!isNew) return found->second;
  ConfigFile record(nullptr);
  Account& account = found->second;
  account.isReadable = readAccount(name.c_str(), record) != 0;
  if (!account.isReadable) errorLog("%.100s: %s", name.c_str(), record.result.orEmpty());
  if (!account.isReadable) return account;
  account.ip = record.getOrEmpty("ip");
  account.nameServers = nameServersOf(record);
  return account;
}

const ZoneData::Linked& ZoneData::addressesOf(const std::string& ip) {
  const auto [found, isNew] = addresses_.try_emplace(ip);
  if (!isNew) return found->second;
  std::vector<std::string> all = {ip};
  ConfigFile record(nullptr);
  if (readAddress(ip.c_str(), record)) {
    for (std::string& linked : addressesIn(record.getValue("linked"))) all.push_back(std::move(linked));
  }
  for (const std::string& address : all) {
    (isValidIPv4(address.c_str()) ? found->second.ipv4 : found->second.ipv6).push_back(address);
  }
  return found->second;
}

bool ZoneData::fillValues(const Account& account, const std::string& name, const std::string& domain,
                          const ConfigFile& record, ZoneValues& values, const ZoneSink& sink) {
  const bool hasOwn = *record.getOrEmpty("ip") != '\0';
  const std::string ip = hasOwn ? record.getOrEmpty("ip") : account.ip;
  if (!isValidIP(ip.c_str())) {
    sink.refuse(name, domain, joined("ip '", ip, "'"), "it is no address");
    return false;
  }
  for (const std::string& server : account.nameServers) {
    if (isValidDomain(server.c_str())) continue;
    sink.refuse(name, domain, joined("name server '", server, "'"), "it is no host name");
    return false;
  }
  const Linked& addresses = addressesOf(ip);
  values[ZoneToken::ip] = addresses.ipv4;
  values[ZoneToken::ipv6] = addresses.ipv6;
  values[ZoneToken::ns] = account.nameServers;
  values[ZoneToken::ns1] = {account.nameServers.front()};
  const std::string spf = spfFor(serverAddress_);
  if (sys_conf->dns_spf && isPlain(spf)) values[ZoneToken::spf] = {quoted(spf, sys_conf->wrap_long_dns_values)};
  return true;
}

void ZoneData::tellZone(const ZoneWish& wish, ZoneValues& values, const ZoneSink& sink) {
  if (!told_.insert(wish.zone).second) return;
  values[ZoneToken::domain] = {wish.zone};
  values[ZoneToken::nsHost] = hostsIn(wish.zone, values[ZoneToken::ns]);
  sink.take(wish);
}

void ZoneData::tellPointers(const std::string& account, const std::string& domain, ZoneValues& values,
                            const ZoneSink& sink) {
  ConfigFile pointers(nullptr);
  if (!readPointers(account.c_str(), domain.c_str(), pointers)) return sink.keep(account, domain);
  values[ZoneToken::subdomain].clear();
  for (long long i = 0; i < pointers.size(); ++i) {
    const std::string pointer = pointers.getNameAt(i);
    if (!isValidDomain(pointer.c_str())) {
      sink.refuse(account, domain, joined("pointer '", pointer, "'"), "it is no domain name");
    } else if (!owners_.existsParam(pointer.c_str()) || owners_.isValue(pointer.c_str(), account.c_str())) {
      // What is somebody else's domain by now is no pointer of this one.
      tellZone({account, domain, pointer, values}, values, sink);
    }
  }
}

void ZoneData::tell(const char* domainName, const ZoneSink& sink) {
  const std::string domain = domainName;
  const std::string name = owners_.getOrEmpty(domainName);
  if (!isValidDomain(domainName)) return;
  const Account& account = accountOf(name);
  if (!account.isReadable) return sink.keep(name, "");
  ConfigFile record(nullptr);
  if (!readDomain(name.c_str(), domainName, record)) {
    errorLog("%s of %.100s: %s", domainName, name.c_str(), record.result.orEmpty());
    return sink.keep(name, domain);
  }
  ZoneValues values;
  if (!fillValues(account, name, domain, record, values, sink)) return;
  std::vector<std::string>& subdomains = values[ZoneToken::subdomain];
  const std::string list = domainFile(name.c_str(), domainName, "subdomains");
  if (pathExists(list.c_str()) && !readSubdomains(name.c_str(), domainName, subdomains)) return sink.keep(name, domain);
  tellZone({name, domain, domain, values}, values, sink);
  tellPointers(name, domain, values, sink);
}

void ZoneData::tellAll(const ZoneSink& sink) {
  // Taken once, and not anew for every file.
  const AsUser panel(kPanelUser);
  for (long long i = 0; i < owners_.size(); ++i) {
    tell(owners_.getNameAt(i), sink);
    atSafePoint();
  }
}

}  // namespace zvtaskq
