#include "tally/bruteforce/lines/data_paths.h"

#include "core/config/config.h"
#include "core/panel/marks.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {
constexpr const char* kState = "brute.conf";
}

std::string bruteStateFile() {
  // Everybody may make entries there: a folder or file of that name is not the administrator's for that.
  std::string own = customOrStock(joined(sys_conf->admindir), kState), stock = adminFile(kState);
  if (own == stock || isPlanted(adminFile("custom").c_str()) || isPlanted(own.c_str())) return stock;
  return own;
}

std::string bruteAddressesFile() {
  return adminFile("brute_ip.data");
}

std::string bruteUsersFile() {
  return adminFile("brute_user.data");
}

std::string bruteEntriesFile() {
  return adminFile("brute_log_entries.list");
}

std::string bruteSkipFile() {
  return adminFile("brute_skip.list");
}

std::string bruteJournalFile() {
  return stateFile("brute_journal");
}

std::string bruteEntriesSpoolFile() {
  return stateFile("brute_journal.entries");
}

std::string bruteFilterFile(const Config& conf) {
  return templatePath(conf, "brute_filter.list");
}

void tellUnreadable(const DataFile& file) {
  constexpr std::size_t kLongest = 300;
  const std::string path = file.getFilename();
  const std::string why = printable(joined(path, ": ", file.result)).substr(0, kLongest);
  if (!isDueAgain(joined("unreadable_", path.substr(path.rfind('/') + 1)).c_str(), why)) return;
  errorLog("Error reading %s: %s.", path.c_str(), file.result.orEmpty());
}

}  // namespace zvtaskq
