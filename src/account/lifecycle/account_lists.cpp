#include "account/lifecycle/account_lists.h"

#include <algorithm>

#include "account/model/account_name.h"
#include "account/model/addresses.h"
#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {

constexpr const char* kUsers = "users.list";
const char* const kManagerLists[] = {"reseller.list", "admin.list"};

/// The lines of a list of the panel's; none when it is not there.
std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  PanelList list(path);
  if (!list.readFile()) return lines;
  for (int i = 0; i < list.size(); ++i) lines.emplace_back(list.getElementAt(i));
  return lines;
}

bool names(const std::string& path, const char* account) {
  const std::vector<std::string> lines = linesOf(path);
  return std::find(lines.begin(), lines.end(), account) != lines.end();
}

/// All lists that may name an account.
std::vector<std::string> allLists() {
  std::vector<std::string> paths;
  for (const char* list : kManagerLists) {
    paths.push_back(adminFile(list));
    for (const std::string& manager : linesOf(paths.back())) {
      if (isAccountName(manager.c_str())) paths.push_back(accountFile(manager.c_str(), kUsers));
    }
  }
  return paths;
}

int drop(const std::string& path, const char* account, Text& result) {
  if (!names(path, account)) return 1;
  return changeList(
      path, [&](ListFile& list) { list.deleteElement(account); }, result);
}

std::string addressFile(const char* address) {
  return adminFile(joined("ips/", address).c_str());
}

int setStatus(const char* address, const char* status, bool takeFromReseller, Text& result) {
  return changeRecord(
      addressFile(address),
      [&](ConfigFile& record) {
        if (!record.isValue("status", kServerStatus) && !record.isValue("status", kSharedStatus)) {
          record.setParam("status", status);
        }
        if (takeFromReseller) record.deleteParam("reseller");
      },
      result);
}

}  // namespace

int listAccount(const ConfigFile& record, Text& result) {
  const AccountType type = accountTypeOf(record);
  const std::string path = type == AccountType::reseller ? adminFile("reseller.list")
                           : type == AccountType::admin  ? adminFile("admin.list")
                                                         : accountFile(record.getOrEmpty("creator"), kUsers);
  return changeList(
      path, [&](ListFile& list) { list.addElement(record.getOrEmpty("username")); }, result);
}

int unlistAccount(const char* account, Text& result) {
  int done = 1;
  for (const std::string& path : allLists()) done &= drop(path, account, result);
  return done;
}

bool isListedAccount(const char* account) {
  const std::vector<std::string> lists = allLists();
  return std::any_of(lists.begin(), lists.end(), [&](const std::string& path) { return names(path, account); });
}

bool isUserOf(const char* creator, const char* account) {
  return names(accountFile(creator, kUsers), account);
}

bool isLastAdministrator(const char* account) {
  const std::vector<std::string> all = linesOf(adminFile("admin.list"));
  return std::none_of(all.begin(), all.end(), [&](const std::string& name) { return name != account; });
}

// --- Addresses -----------------------------------------------------------------------------------------------------

int mayUseAddress(const char* address, const char* creator, Text& result) {
  if (*address == '\0') return 1;
  if (!isValidIP(address)) return fail(result, address, " is no address");
  PanelRecord record(addressFile(address));
  if (!record.readFile()) return fail(result, "There is no address ", address, " on this server");
  if (record.isValue("status", kOwnedStatus)) return fail(result, "The address ", address, " is another account's");
  const std::string_view reseller = record.getOrEmpty("reseller");
  if (!reseller.empty() && reseller != creator) {
    return fail(result, "The address ", address, " is another reseller's");
  }
  return 1;
}

int takeAddress(const char* address, Text& result) {
  return *address == '\0' || setStatus(address, kOwnedStatus, false, result) ? 1 : 0;
}

int releaseAddresses(const char* account, const char* address, Text& result) {
  int done = 1;
  for (const std::string& known : linesOf(adminFile("ip.list"))) {
    if (!isValidIP(known.c_str())) continue;
    PanelRecord record(addressFile(known.c_str()));
    if (!record.readFile()) continue;
    const bool isGiven = record.isValue("reseller", account) != 0;
    const bool isOwn = known == address && record.isValue("status", kOwnedStatus);
    if (isGiven || isOwn) done &= setStatus(known.c_str(), kFreeStatus, isGiven, result);
  }
  return done;
}

}  // namespace zvtaskq
