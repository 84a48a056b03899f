#include "tally/checks/partition_check.h"

#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/overrides.h"
#include "core/panel/partitions.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "notify/template_notice.h"

namespace zvtaskq {

namespace {

constexpr Notice kNotice{
    "partition_check_message.txt",
    [](const char* why) { errorLog("Error while sending partition usage warning: %s", why); },
    "A partition of the server is nearly full",
    "quota_thresh_last_check",
};
constexpr const char* kListFile = "partition_check.list";
/// Of what was said last of a check that could not be made.
constexpr const char* kMark = "partition_check";
constexpr int kEveryTime = 2;
constexpr long long kDay = 86401;

int readWatched(const std::string& path, ListFile& watched) {
  watched.setUser("root");
  if (watched.readFile()) return 1;
  if (!isDueAgain(kMark, "list")) return 0;
  errorLog("Unable to read %s : %s\n", path.c_str(), watched.result.orEmpty());
  return 0;
}

int readSettings(const std::string& path, ConfigFile& settings) {
  if (settings.readFile()) return 1;
  if (!isDueAgain(kMark, "settings")) return 0;
  errorLog("Unable to read %s : %s", path.c_str(), settings.result.orEmpty());
  return 0;
}

}  // namespace

std::string fullPartitions(const ListFile& watched, const ConfigFile& usage, int threshold) {
  std::string found;
  for (int i = 0; i < watched.size(); ++i) {
    const char* mountPoint = watched.getElementAt(i);
    const char* columns = usage.getValue(mountPoint);
    if (columns == nullptr) continue;
    ConfigFile row(nullptr);
    row.fillFromPost(columns);
    int used = 0;
    if (!row.getValue("Use", &used) || used < threshold) continue;
    found += joined(std::to_string(used), "% - ", mountPoint, "\n");
  }
  return found;
}

void check_partition_usage(const Config* conf) {
  if (isDemo() || conf->check_partitions == 0) return;
  debug(30, "Checking partition usage");
  const std::string listPath = templatePath(*conf, kListFile);
  ListFile watched(listPath.c_str());
  if (!readWatched(listPath, watched)) return;
  ConfigFile usage(nullptr);
  if (!readPartitionUsage(usage)) {
    if (!isDueAgain(kMark, "usage")) return;
    errorLog("unable to get the disk usage with the df command to check the disk usage");
    return;
  }
  const std::string settingsPath = adminSettingsFile();
  ConfigFile settings(settingsPath.c_str());
  if (!readSettings(settingsPath, settings)) return;

  debug(35, "Scanning the partition usages..");
  const std::string full = fullPartitions(watched, usage, conf->partition_usage_threshold);
  if (full.empty()) return;
  if (conf->check_partitions != kEveryTime && secondsSinceLast(kNotice, settings) < kDay) return;

  ConfigFile tokens(nullptr);
  tokens.setParam("THRESHOLD", conf->partition_usage_threshold);
  tokens.setParam("PARTITIONS", full.c_str());
  tokens.setParam("LANG", conf->language.orEmpty());
  sendNotice(kNotice, tokens, *conf);
}

}  // namespace zvtaskq
