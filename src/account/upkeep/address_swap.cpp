// Linked addresses that change places.
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "account/model/account_record.h"
#include "account/model/addresses.h"
#include "account/upkeep/address_changes.h"
#include "account/upkeep/rows.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/task_queue.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {

/// What of an address's record tells of its place. The others (`netmask`, `ns`) tell of the address itself, and stay.
constexpr const char* kPlaceKeys[] = {"status", "reseller", "users", "linked"};
using Partners = std::map<std::string, std::string, std::less<>>;

const std::string& partnerOf(const Partners& partners, const std::string& address) {
  const auto found = partners.find(address);
  return found == partners.end() ? address : found->second;
}

/// Why the first address of the list linked to `address` cannot change places with it; null when it can.
const char* obstacle(const Address& address, const std::string& first, const std::map<std::string, bool>& known,
                     const Partners& partners) {
  const auto other = known.find(first);
  if (first == address.text) return "is linked to itself";
  if (other == known.end()) return "is not in ip.list";
  if (!address.hasRecord || !other->second) return "has no record";
  return partners.contains(address.text) || partners.contains(first) ? "changes places already" : nullptr;
}

Partners partnersOf(const std::vector<Address>& addresses) {
  std::map<std::string, bool> known;
  for (const Address& address : addresses) known[address.text] = address.hasRecord;
  Partners partners;
  for (const Address& address : addresses) {
    if (address.linked.empty()) continue;
    const std::string& first = address.linked.front();
    // Two that are linked to each other change places once.
    if (partnerOf(partners, address.text) == first && first != address.text) continue;
    if (const char* why = obstacle(address, first, known, partners)) {
      errorLog("Unable to swap %s with %s, which is linked to it: one of them %s", address.text.c_str(), first.c_str(),
               why);
      continue;
    }
    partners[address.text] = first;
    partners[first] = address.text;
  }
  return partners;
}

class SwapPlan {
 public:
  SwapPlan(const Partners& partners, AddressChanges& changes) : partners_(partners), changes_(changes) {}

  /// The record of an address gets the place of its partner; what is linked to whom follows in all of them.
  void addAddress(const std::string& address) {
    ConfigFile own(nullptr), partner(nullptr);
    const std::string& other = partnerOf(partners_, address);
    if (!readAddress(address.c_str(), own) || !readAddress(other.c_str(), partner)) return;
    for (const char* key : kPlaceKeys) {
      std::string now = partner.getOrEmpty(key);
      if (std::string_view(key) == "linked") now = followed(now);
      add("", address, key, own.getOrEmpty(key), now);
    }
  }

  /// 0 with error-log lines when not all of the account could be read; the rest follows.
  int addAccount(const char* account) {
    ConfigFile record(nullptr);
    record.useLock = false;
    int whole = tell(readAccount(account, record), record);
    follow(account, "user.conf", record);
    ListFile list(nullptr);
    list.useLock = false;
    whole &= tell(readAccountList(account, "ip.list", list), list);
    followList(account, list);
    std::vector<std::string> domains;
    Text result;
    if (!readDomains(account, domains, result)) {
      errorLog("domains.list of %s: %s", account, result.orEmpty());
      whole = 0;
    }
    for (const std::string& domain : domains) {
      ConfigFile ofDomain(nullptr);
      ofDomain.useLock = false;
      whole &= tell(readDomain(account, domain.c_str(), ofDomain), ofDomain);
      follow(account, joined("domains/", domain, ".conf"), ofDomain);
    }
    return whole;
  }

 private:
  static int tell(int outcome, const DataFile& file) {
    if (!outcome) errorLog("%s: %s", file.getFilename(), file.result.orEmpty());
    return outcome;
  }

  /// A list of linked addresses with each in the other's place; as it is when none of them has another.
  std::string followed(const std::string& linked) const {
    std::string list;
    bool moved = false;
    for (const std::string& one : addressesIn(linked.c_str())) {
      list.append(list.empty() ? "" : ",").append(partnerOf(partners_, one));
      moved = moved || partners_.contains(one);
    }
    return moved ? list : linked;
  }

  void follow(const char* account, const std::string& file, const ConfigFile& record) {
    const std::string ip = record.getOrEmpty("ip");
    add(account, file, "ip", ip, partnerOf(partners_, ip));
  }

  void followList(const char* account, const ListFile& list) {
    for (int i = 0; i < list.size(); ++i) {
      const std::string old = list.getElementAt(i);
      const std::string& now = partnerOf(partners_, old);
      // One that has both keeps both.
      if (!list.existElement(now.c_str())) add(account, "ip.list", "", old, now);
    }
  }

  void add(const char* account, const std::string& file, const char* key, const std::string& old,
           const std::string& now) {
    if (old != now) changes_.add({account, file, key, old, now});
  }

  const Partners& partners_;
  AddressChanges& changes_;
};

/// Plans a new swap. 0 when something of it could not be read; the rest is planned.
int plan(AddressChanges& changes) {
  std::vector<Address> addresses;
  ListFile accounts(nullptr);
  if (!readAddresses(addresses)) return 0;
  const Partners partners = partnersOf(addresses);
  if (partners.empty()) return 1;
  if (!listAccounts(accounts)) {
    errorLog("Unable to read %s", sys_conf->userdata.orEmpty());
    return 0;
  }
  SwapPlan swap(partners, changes);
  for (const Address& address : addresses) swap.addAddress(address.text);
  int whole = 1;
  // Taken once, and not anew for every file.
  const AsUser panel(kPanelUser);
  for (int i = 0; i < accounts.size(); ++i) {
    whole &= swap.addAccount(accounts.getElementAt(i));
    atSafePoint();
  }
  return whole;
}

/// Whatever else names the addresses is written anew.
void queueWhatFollows() {
  for (const char* what : {"httpd", "ips", "domainips", "helo_data"}) queueTask("rewrite", what);
  ConfigFile serials(nullptr);
  serials.setParam("update_serial", "yes");
  if (!pushOnTaskQueue("rewrite", "named", nullptr, &serials)) {
    errorLog("Unable to queue the rewrite of the DNS zones: %s", systemResult().orEmpty());
  }
}

}  // namespace

int swapLinkedIps(const Task&) {
  debug(10, "Swapping Linked-IPs");
  if (isDemo()) return 1;
  AddressChanges changes;
  if (!changes.read()) return 0;
  // What a swap before has left is finished, and not swapped back.
  int planned = 1;
  if (changes.isEmpty()) {
    planned = plan(changes);
    if (!changes.write()) return 0;
  }
  if (changes.isEmpty()) return planned;
  const int made = changes.make();
  if (!made) errorLog("The swap of linked addresses is not finished: action=ipswap&value=linked_ips goes on with it");
  queueWhatFollows();
  return changes.write() && made && planned;
}

}  // namespace zvtaskq
