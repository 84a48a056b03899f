#include "tally/bruteforce/lines/web_log_list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/marks.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/dates.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"
#include "tally/logs/web_logs.h"

namespace zvtaskq {

namespace {

constexpr int kRefreshing = 2;
constexpr std::size_t kLongestPath = 511;
constexpr const char* kLastRefresh = "last_refresh";

/// With the slash at its end.
std::string webLogFolder(const Config& conf) {
  std::string folder = mainLogFolder(conf);
  while (folder.ends_with('/')) folder.pop_back();
  return folder + '/';
}

bool isLogName(std::string_view name) {
  return name.ends_with(".log") && !name.ends_with(".error.log");
}

/// Whether the path can be a name of the record.
bool fitsRecord(std::string_view path) {
  const auto fits = [](char c) { return c != '=' && c != '\x7f' && static_cast<unsigned char>(c) >= ' '; };
  return path.size() <= kLongestPath && std::all_of(path.begin(), path.end(), fits);
}

bool isDue(const Config& conf, const ConfigFile& scanState) {
  if (conf.brute_force_scan_apache_logs < kRefreshing) return false;
  long long last = 0;
  static_cast<void>(scanState.getValue(kLastRefresh, &last));
  return ageOf(last, std::time(nullptr)).seconds > conf.brute_force_apache_log_list_update_interval * 60LL;
}

void addFolder(const std::string& folder, ConfigFile& scanState) {
  const AsRoot root;
  FolderReader open(folder.c_str());
  if (!open) {
    const char* why = std::strerror(errno);
    if (!isDueAgain("brute_web_logs", why)) return;
    errorLog("Tally::get_apache_logs_from_brute_conf: Unable to read %s: %s", folder.c_str(), why);
    return;
  }
  while (const dirent* entry = open.next()) {
    if (!isLogName(entry->d_name)) continue;
    const std::string path = folder + entry->d_name;
    if (!fitsRecord(path) || scanState.existsParam(path.c_str()) || !pathExists(path.c_str(), PathKind::file)) continue;
    scanState.setParam(path.c_str(), "");
  }
}

}  // namespace

int get_apache_logs_from_brute_conf(const Config* conf, ConfigFile& scanState, ListFile& out) {
  const std::string folder = webLogFolder(*conf);
  const bool due = isDue(*conf, scanState);
  if (due) {
    addFolder(folder, scanState);
    scanState.setParam(kLastRefresh, static_cast<long long>(std::time(nullptr)));
  } else {
    debug(100, "Tally::get_apache_logs_from_brute_conf: not loading logs this round");
  }
  for (long long i = 0; i < scanState.size(); ++i) {
    const char* path = scanState.getNameAt(i);
    if (path != nullptr && std::string_view(path).starts_with(folder)) out.addElement(path);
  }
  return due ? 1 : 0;
}

}  // namespace zvtaskq
