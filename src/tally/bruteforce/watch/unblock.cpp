#include "tally/bruteforce/watch/unblock.h"

#include <algorithm>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/marks.h"
#include "core/panel/overrides.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/text/text.h"
#include "tally/bruteforce/lines/network.h"

namespace zvtaskq {

namespace {

constexpr const char* kShowScript = "show_blocked_ips.sh";
constexpr const char* kUnblockScript = "unblock_ip.sh";
constexpr int kScriptTime = 120;
constexpr std::size_t kLongestList = 16UL * 1024 * 1024;
/// What fits into a variable of a script, whatever the addresses look like.
constexpr std::size_t kMostAtOnce = 1000;

/// When it was blocked, and the address.
using Block = std::pair<long long, std::string>;

/// Whether the fault is another than in the run before, or a day old.
bool isNews(const char* why) {
  constexpr std::size_t kLongest = 300;
  return isDueAgain("brute_unblock", printable(why).substr(0, kLongest));
}

int refuse(const char* why) {
  if (isNews(why)) errorLog("Tally::unblock_bfm_ips error: %s", why);
  return 0;
}

int readBlocked(const Config& conf, ConfigFile& blocked) {
  const std::string path = scriptPath(conf, kShowScript);
  const HookAnswer answer = executeIfExists(path.c_str(), std::vector<Variable>{}, kScriptTime, kLongestList);
  if (answer.failed()) return refuse(answer.error.c_str());
  if (answer.result.empty()) {
    if (isNews("no result")) errorLog("show_blocked_ips.sh returns no result");
    return 0;
  }
  // The last entry of a list that was cut off may be a part of another address or time.
  if (answer.result.size() >= kLongestList) return refuse("the list of blocked addresses is too long");
  blocked.fillFromPost(answer.result.c_str());
  if (blocked.isValue("havedata", "1")) return 1;
  if (isNews("no data")) errorLog("show_blocked_ips.sh did not return havedata=1");
  return 0;
}

/// Those that were blocked at `limit` or before, the longest blocked first.
std::vector<Block> dueBlocks(const ConfigFile& blocked, long long limit) {
  std::vector<Block> due;
  for (long long i = 0; i < blocked.size(); ++i) {
    const char* address = blocked.getNameAt(i);
    if (!readNetwork(text_detail::part(address))) continue;
    ConfigFile record(nullptr);
    record.fillFromPost(blocked.getValueAt(i));
    long long since = 0;
    if (record.getValue("dateblocked", &since) && since > 0 && since <= limit) due.emplace_back(since, address);
  }
  std::sort(due.begin(), due.end());
  if (due.size() > kMostAtOnce) due.resize(kMostAtOnce);
  return due;
}

int unblock(const Config& conf, const std::vector<Block>& due) {
  std::string addresses;
  for (const Block& block : due) addresses += (addresses.empty() ? "" : ",") + block.second;
  const std::string path = scriptPath(conf, kUnblockScript);
  const HookAnswer answer = executeIfExists(path.c_str(), {{"ip", addresses}}, kScriptTime);
  if (answer.failed()) return refuse(answer.error.c_str());
  return answer.ran ? 1 : refuse(joined("there is no ", path).c_str());
}

}  // namespace

int unblock_bfm_ips(const Config* conf) {
  if (conf->unblock_brute_ip_time <= 0) return 1;
  ConfigFile blocked(nullptr);
  if (!readBlocked(*conf, blocked)) return 0;
  const std::vector<Block> due = dueBlocks(blocked, std::time(nullptr) - conf->unblock_brute_ip_time * 60LL);
  debug(100, "Tally::unblock_bfm_ips(): number of IPs to unblock: %d", static_cast<int>(due.size()));
  return due.empty() ? 1 : unblock(*conf, due);
}

}  // namespace zvtaskq
