// What a scan found, on its way into the files: a scan that is cut short at any step counts nothing twice and loses
// nothing (docs/decisions/0007-brute-force-journal.md).
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "core/record/config_file.h"
#include "tally/bruteforce/lines/match.h"
#include "tally/bruteforce/records/counts.h"
#include "tally/bruteforce/records/entries.h"
#include "tally/bruteforce/records/records.h"

namespace zvtaskq {

class Config;

/// All that one scan found.
struct BruteFindings {
  explicit BruteFindings(const std::vector<BruteFilter>& filters);

  /// In seconds since the epoch. No record that the scan adds to and no list of entries holds that time already.
  long long time = 0;
  std::vector<std::string> filters;
  AddressTable addresses;
  BruteCounts addressCounts;
  NameTable users;
  BruteCounts userCounts;

  FoundFailures addressFailures() const { return {addresses.clean(), addressCounts, filters, time}; }
  FoundFailures userFailures() const { return {users, userCounts, filters, time}; }
};

/// The files that the findings go into.
struct BruteFiles {
  BruteFiles();
  BruteRecords addresses;
  BruteRecords users;
  /// What was added since the object was made has this `last_entry` or a later one.
  long long addedSince = std::numeric_limits<long long>::max();
};

/// Puts the findings into the files: first into the journal, so that they are safe, then from there where they belong,
/// and then the journal goes. `state` is how far the logs have been read by now. The records are those that were
/// written, afterwards. 0 with an error-log line: nothing has changed then, or what is missing is done by
/// `finishBruteJournal`. Leaves the process at nobody.
[[nodiscard]] int commitBruteFindings(const Config& conf, BruteFindings& findings, const SpooledEntries& entries,
                                      ConfigFile& state, BruteFiles& files);
/// Finishes what a scan has left behind in its journal, if there is one. 0 with an error-log line when that failed; no
/// log may be read then. Leaves the process at nobody.
[[nodiscard]] int finishBruteJournal(const Config& conf, BruteFiles& files);

}  // namespace zvtaskq
