#include "tally/bruteforce/lines/data_paths.h"

#include "core/config/config.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"

namespace zvtaskq {

std::string bruteStateFile() {
  return customOrStock(joined(sys_conf->admindir), "brute.conf");
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
  return adminFile("brute_journal");
}

std::string bruteEntriesSpoolFile() {
  return adminFile("brute_journal.entries");
}

std::string bruteFilterFile(const Config& conf) {
  return templatePath(conf, "brute_filter.list");
}

}  // namespace zvtaskq
