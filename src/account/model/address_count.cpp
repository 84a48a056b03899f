#include "account/model/address_count.h"

#include <set>
#include <string>
#include <unordered_map>

#include "account/model/account_record.h"
#include "account/model/addresses.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {

class Users {
 public:
  /// 0 with error-log lines when not all that the account names is known.
  int add(const char* account) {
    ConfigFile record(nullptr);
    ListFile list(nullptr);
    // A record is replaced as a whole: who only looks needs no lock, and ten thousand locks take their time.
    record.useLock = list.useLock = false;
    int known = tell(readAccount(account, record), record);
    const char* main = record.getValue("ip");
    std::set<std::string> named;
    if (main != nullptr && *main != '\0') named.emplace(main);
    known &= tell(readAccountList(account, "ip.list", list), list);
    for (int i = 0; i < list.size(); ++i) named.emplace(list.getElementAt(i));
    for (const std::string& address : named) ++counts_[address];
    return known;
  }

  int of(const std::string& address) const {
    const auto found = counts_.find(address);
    return found == counts_.end() ? 0 : found->second;
  }

 private:
  static int tell(int outcome, const DataFile& file) {
    if (!outcome) errorLog("%s: %s", file.getFilename(), file.result.orEmpty());
    return outcome;
  }

  std::unordered_map<std::string, int> counts_;
};

int keep(const Address& address, int users) {
  if (!address.hasRecord || address.users == users) return 1;
  return changeAddress(address.text.c_str(), [&](ConfigFile& record) { return record.setParam("users", users) != 0; });
}

}  // namespace

int recountIps() {
  if (isDemo()) return 1;
  std::vector<Address> addresses;
  ListFile accounts(nullptr);
  if (!readAddresses(addresses)) return 0;
  if (!listAccounts(accounts)) {
    errorLog("Unable to read %s", sys_conf->userdata.orEmpty());
    return 0;
  }
  Users users;
  int outcome = 1;
  // Taken once, and not anew for every file.
  const AsUser panel(kPanelUser);
  for (int i = 0; i < accounts.size(); ++i) {
    outcome &= users.add(accounts.getElementAt(i));
    atSafePoint();
  }
  for (const Address& address : addresses) outcome &= keep(address, users.of(address.text));
  return outcome;
}

}  // namespace zvtaskq
