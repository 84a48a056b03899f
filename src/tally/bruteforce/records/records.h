// The two files of counts: a record of each name, with a count for each filter, when the first and the last failure
// were, and when the administrators were last told.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/record/config_file.h"
#include "tally/bruteforce/records/counts.h"

namespace zvtaskq {

class Config;

/// What a name's record says. Times are in seconds since the epoch, 0 when they are not there.
struct BruteFigures {
  long long failures = 0;
  long long firstEntry = 0;
  long long lastEntry = 0;
  long long lastNotify = 0;
};
/// Null counts as empty. Failures add up to the largest number at most.
BruteFigures figuresOf(const char* record);

/// A scan takes the next second when the one that it began in is taken; so a time that is ahead by these seconds is
/// no sign of a clock that was put back.
inline constexpr long long kSlightlyAhead = 120;

/// The most names that one of the files takes up.
inline constexpr long long kMostBruteNames = 1'000'000;

/// One of the two files.
class BruteRecords {
 public:
  explicit BruteRecords(std::string path);

  /// Reads the file; when there is none, it is empty. 0 with an error-log line. Leaves the process at nobody.
  [[nodiscard]] int read();
  /// Reads the file, lets `change` change it, and writes it when it did, all of it under the file's lock. 0 with an
  /// error-log line. Leaves the process at nobody.
  [[nodiscard]] int update(const std::function<void(ConfigFile&)>& change);
  /// What was read last.
  ConfigFile& counts() { return *counts_; }

 private:
  int readThere();
  void startAnew();

  std::string path_;
  std::unique_ptr<ConfigFile> counts_;
};

/// Removes the records whose last failure is more than `clear_brute_log_time` hours ago. One that lies in the future,
/// because the clock was put back, is taken for now, which the error log is told. Returns how many changed.
long long clear_old_brute_entries(const Config& conf, ConfigFile& counts);

/// Whether there is anything for it to do.
bool holdsOldBruteEntries(const Config& conf, const ConfigFile& counts);

/// The failures of one scan, ready to be added to a file.
struct FoundFailures {
  const NameTable& names;
  const BruteCounts& counts;
  /// The names of the scan's filters.
  const std::vector<std::string>& filters;
  /// Of the scan, in seconds since the epoch.
  long long time;
};
/// Drops stale records, then adds the failures. A record whose `last_entry` is the time of the scan had them already.
/// Of more names than kMostBruteNames those with the fewest failures, and of these the ones that failed longest ago,
/// are dropped, with an error-log line.
void mergeBruteCounts(const Config& conf, const FoundFailures& found, ConfigFile& counts);
/// Adds the `last_entry` of each record that the failures would be added to.
void collectLastEntries(const FoundFailures& found, const ConfigFile& counts, std::vector<long long>& times);

}  // namespace zvtaskq
