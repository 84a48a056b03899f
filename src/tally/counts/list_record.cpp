#include "tally/counts/list_record.h"

#include <charconv>
#include <string_view>
#include <vector>

#include "account/model/account_record.h"
#include "account/model/limits.h"
#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kBetween = "<br>";
constexpr const char* kCustom = "custom";

std::string shown(double amount) {
  char digits[64];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, amount, std::chars_format::fixed);
  return error == std::errc() ? std::string(digits, end) : "0";
}

std::string usedOf(const ConfigFile& limits, const ConfigFile& used, const char* key) {
  const Limit limit = shownLimitOf(limits, key);
  return joined(shown(amountOf(used, key)), " / ", limit.isUnlimited ? "unlimited" : shown(limit.amount));
}

/// The words of a text that commas separate, as the list shows several.
std::string severalOf(std::string_view words) {
  std::string all(words);
  for (std::size_t at = 0; (at = all.find(',', at)) != std::string::npos; at += kBetween.size()) {
    all.replace(at, 1, kBetween);
  }
  return all;
}

void addTo(std::string& all, std::string_view one) {
  all.append(all.empty() ? "" : kBetween).append(one);
}

std::string addressesOf(const char* account) {
  PanelList list(accountFile(account, "ip.list"));
  list.useLock = false;
  std::string all;
  if (!list.readFile()) return all;
  for (int i = 0; i < list.size(); ++i) addTo(all, text_detail::part(list.getElementAt(i)));
  return all;
}

void addPackage(const ConfigFile& account, std::string& record) {
  const std::string_view package = account.getOrEmpty("package");
  const bool isCustom = package.empty() || package == kCustom;
  addPair(record, "package", isCustom ? kCustom : package);
  const std::string_view original = account.getOrEmpty("original_package");
  if (isCustom && !original.empty()) addPair(record, "original_package", original);
}

void addDomains(const char* account, std::string& record) {
  std::vector<std::string> domains;
  Text result;
  if (!readDomains(account, domains, result)) {
    errorLog("The domains of account %s are not listed: %s", account, result.orEmpty());
  }
  std::string list;
  for (const std::string& domain : domains) addTo(list, domain);
  addPair(record, "list", list);
  for (const std::string& domain : domains) {
    ConfigFile pointers(nullptr);
    pointers.useLock = false;
    if (!readPointers(account, domain.c_str(), pointers)) continue;
    for (long long i = 0; i < pointers.size(); ++i) {
      addPair(record, joined("pointer_", pointers.getNameAt(i)), domain);
    }
  }
}

}  // namespace

int makeListRecord(const char* account, std::string& record) {
  ConfigFile limits(nullptr), used(nullptr);
  limits.useLock = used.useLock = false;
  if (!readAccount(account, limits) || !readAccountFile(account, "user.usage", used)) {
    errorLog("Unable to read user %s's data files: %s%s", account, limits.result.orEmpty(), used.result.orEmpty());
    return 0;
  }
  record.clear();
  for (const char* key : {"bandwidth", "quota", "vdomains"}) addPair(record, key, usedOf(limits, used, key));
  addPair(record, "suspended", limits.isValue("suspended", "yes") ? "Yes" : "No");
  addPair(record, "suspended_reason", severalOf(limits.getOrEmpty("suspended_reason")));
  addPair(record, "creator", limits.getOrEmpty("creator"));
  addPair(record, "default", limits.getOrEmpty("domain"));
  addPair(record, "ip", limits.getOrEmpty("ip"));
  addPair(record, "ips", addressesOf(account));
  addPair(record, "type", accountTypeOf(limits) == AccountType::user ? "user" : "reseller");
  addPair(record, "email_deliveries_outgoing", shown(amountOf(used, "email_deliveries_outgoing")));
  addPackage(limits, record);
  addDomains(account, record);
  return 1;
}

}  // namespace zvtaskq
