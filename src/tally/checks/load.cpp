#include "tally/checks/load.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/marks.h"
#include "core/panel/overrides.h"
#include "core/panel/system_info.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/template_notice.h"

namespace zvtaskq {

namespace {

constexpr Notice kNotice{
    "load_check_message.txt",
    [](const char* why) { errorLog("Error while sending load limit warning: %s", why); },
    "The load of the server is high",
    "load_limit_last_sent",
};
constexpr const char* kPreScript = "load_spike_notice_pre.sh";
constexpr const char* kPostScript = "load_spike_notice_post.sh";
/// Seconds a script around the notice may take: the check belongs to a run that comes every minute.
constexpr int kScriptTime = 300;
constexpr int kListedProcesses = 30;
/// As `uptime` prints them.
constexpr const char* kAverageForm = "%.2f";

struct Averages {
  double one = 0;
  double five = 0;
  double fifteen = 0;
};

struct MinuteRow {
  int minutes;
  double Averages::*average;
};
constexpr MinuteRow kMinutes[] = {{1, &Averages::one}, {5, &Averages::five}, {15, &Averages::fifteen}};

const MinuteRow* rowOf(int minutes) {
  const auto* found = std::find_if(std::begin(kMinutes), std::end(kMinutes),
                                   [&](const MinuteRow& row) { return row.minutes == minutes; });
  return found == std::end(kMinutes) ? nullptr : found;
}

/// Whether enough time has passed since the last notice.
bool isDue(const Config& conf) {
  const std::string path = adminSettingsFile();
  ConfigFile settings(path.c_str());
  if (!settings.readFile()) {
    if (!isDueAgain("load_check", "settings")) return false;
    errorLog("Tally::check_system_load: Unable to read %s : %s", path.c_str(), settings.result.orEmpty());
    return false;
  }
  return secondsSinceLast(kNotice, settings) > conf.load_notice_interval * 60LL;
}

void putTokens(const Config& conf, const Averages& load, double picked, ConfigFile& tokens) {
  tokens.setParam("ONE", load.one, kAverageForm);
  tokens.setParam("FIVE", load.five, kAverageForm);
  tokens.setParam("FIFTEEN", load.fifteen, kAverageForm);
  tokens.setParam("LOAD", picked, kAverageForm);
  tokens.setParam("MINUTE", conf.check_load_minute);
  tokens.setParam("LIMIT", conf.check_load);
  tokens.setParam("LANG", conf.language.orEmpty());
}

/// Everybody on the machine chooses what processes are called; their names must not become tokens of the template.
void putListing(ConfigFile& tokens) {
  std::string listing = getProcessListing(kListedProcesses);
  std::replace(listing.begin(), listing.end(), '|', '!');
  if (!listing.empty()) tokens.setParam("TOP", listing.c_str());
}

}  // namespace

void check_system_load(const Config* conf) {
  if (conf->check_load == 0) return;
  Averages load;
  if (!getLoadAverage(load.one, load.five, load.fifteen)) {
    debug(10, "Tally::check_system_load:  getLoadAverage returned 0. Aborting.");
    return;
  }
  const MinuteRow* minute = rowOf(conf->check_load_minute);
  if (minute == nullptr) {
    if (!isDueAgain("load_check", "minute")) return;
    errorLog("Tally::check_system_load: check_load_minute is not set to 1, 5 or 15.");
    return;
  }
  const double picked = load.*(minute->average);
  if (!(picked > conf->check_load) || !isDue(*conf)) return;

  ConfigFile tokens(nullptr);
  putTokens(*conf, load, picked, tokens);
  const HookAnswer before = executeWithTokens(hookPath(*conf, kPreScript).c_str(), tokens, kScriptTime);
  if (before.failed()) {
    errorLog("Tally::check_system_load: Pre script output: %s", before.error.c_str());
    return;
  }
  putListing(tokens);
  sendNotice(kNotice, tokens, *conf);
  const HookAnswer after = executeWithTokens(hookPath(*conf, kPostScript).c_str(), tokens, kScriptTime);
  if (after.failed()) errorLog("Tally::check_system_load: Post script output: %s", after.error.c_str());
}

}  // namespace zvtaskq
