#include "tally/bruteforce/lines/data_paths.h"

#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/sys/identity.h"
#include "core/sys/privileges.h"
#include "notify/template_notice.h"

namespace zvtaskq {

std::string bruteStateFile() {
  const AsUser panel(kPanelUser);
  std::string own = adminFile("custom/brute.conf");
  return pathExists(own.c_str()) ? own : adminFile("brute.conf");
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
