// The files of the brute-force monitor. All belong to the panel's user (`kPanelUser`).
#pragma once

#include <string>

namespace zvtaskq {

class Config;
class DataFile;

/// How far each log has been read: "custom/brute.conf" among the server-wide data files when the administrator made
/// one, else "brute.conf" there.
std::string bruteStateFile();
/// The failures counted for each address, and for each account.
std::string bruteAddressesFile();
std::string bruteUsersFile();
/// One line for every log line that counted.
std::string bruteEntriesFile();
/// The names that are never reported.
std::string bruteSkipFile();
/// What the monitor is about to change in the files above, while it does. This and what goes with it stand in the state
/// folder (core/panel/state_folder.h).
std::string bruteJournalFile();
/// The log lines that go with it.
std::string bruteEntriesSpoolFile();
/// The filters: "custom/brute_filter.list" among the templates when the administrator made one, else the stock list.
std::string bruteFilterFile(const Config& conf);

/// Says in the error log why one of these files could not be read: once, and again when the reason is another or a day
/// has passed.
void tellUnreadable(const DataFile& file);

}  // namespace zvtaskq
