// The names by which the mail server greets, one for each address that it sends from.
#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <vector>

#include "account/model/addresses.h"
#include "account/upkeep/mail_table.h"
#include "account/upkeep/rows.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/system_info.h"
#include "core/sys/log.h"
#include "core/sys/safe_point.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {

constexpr const char* kTable = "helo_data";
/// Seconds that all look-ups together may take, and each.
constexpr int kTimeForAll = 60;
constexpr int kTimeForOne = 3;

using Clock = std::chrono::steady_clock;

/// Asks the name service for the names of addresses, within one time for all of them.
class Names {
 public:
  /// The first name of the address that leads back to it; empty when it has none. False when there was no time to find
  /// out: nothing is known of the address then.
  bool find(const std::string& address, std::string& name) {
    name.clear();
    std::vector<std::string> names;
    if (!ask([&](int seconds) { names = resolveAddress(address.c_str(), seconds); })) return false;
    for (const std::string& one : names) {
      bool leadsBack = false;
      if (!ask([&](int seconds) { leadsBack = resolvesTo(one.c_str(), address.c_str(), seconds); })) return false;
      if (leadsBack) {
        name = one;
        return true;
      }
    }
    return true;
  }

 private:
  /// False when there was no time for the answer. An answer that took as long as it might is none.
  template <class Question>
  bool ask(Question question) {
    const Clock::time_point start = Clock::now();
    const auto left = std::chrono::duration_cast<std::chrono::seconds>(end_ - start).count();
    if (left < 1) return false;
    const int seconds = static_cast<int>(std::min<long long>(left, kTimeForOne));
    question(seconds);
    return Clock::now() - start < std::chrono::seconds(seconds);
  }

  Clock::time_point end_ = Clock::now() + std::chrono::seconds(kTimeForAll);
};

}  // namespace

int rewriteHeloData(const Task&) {
  if (isDemo()) return 1;
  std::vector<Address> addresses;
  if (!readAddresses(addresses)) return 0;
  Names names;
  ConfigFile table(nullptr);
  std::set<std::string, std::less<>> unknown;
  for (const Address& address : addresses) {
    const std::string key = mailTableName(address.text);
    std::string name = sys_conf->servername.orEmpty();
    const bool isServers = address.status == kServerStatus && isValidDomain(name.c_str());
    if (!isServers && !names.find(address.text, name)) unknown.insert(key);
    if (!name.empty() && !unknown.contains(key)) table.setParam(key.c_str(), name.c_str());
    atSafePoint();
  }
  if (!unknown.empty()) {
    errorLog("No answer about the names of %zu of %zu addresses: what %s says of them stays", unknown.size(),
             addresses.size(), kTable);
  }
  return writeMailTable(kTable, table, [&](const char* name) { return unknown.contains(std::string_view(name)); });
}

}  // namespace zvtaskq
