// Reading the logs for failed log-ins.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/record/config_file.h"
#include "core/text/line_search.h"
#include "tally/bruteforce/lines/suspended_accounts.h"
#include "tally/bruteforce/records/journal.h"

namespace zvtaskq {

/// Logs of one kind.
struct BruteGroup {
  int number;
  /// Where the settings name the log; null for the logs of web sites, of which there are many.
  Text Config::*log;
  /// The programs whose filters recognise failed log-ins in it; null behind the last.
  const char* programs[3];
  /// A log that is missing is worth an error-log line.
  bool isExpected;
};

/// What a scan knows and has found so far.
class BruteScan {
 public:
  BruteScan(const Config& conf, const std::vector<BruteFilter>& filters);

  /// Takes the failed log-ins of the lines, which all end in a line feed, to the findings. `lineCount` is increased by
  /// their number.
  void takeLines(const BruteGroup& group, std::string_view lines, long long& lineCount);
  /// Says how many doubtful addresses there were besides those that were told one by one.
  void tellDoubts() const;
  /// As much has been found as should be kept in memory: it is to be committed, and a new scan goes on.
  bool isFull() const;

  BruteFindings findings;
  EntrySpool spool;

 private:
  /// A group's filters, in order, and the search for their texts.
  struct GroupFilters {
    int group;
    std::vector<const BruteFilter*> filters;
    LineSearch search;
    bool hasLearned = false;
  };
  GroupFilters& filtersOf(const BruteGroup& group);
  /// `texts` says which of the group's texts stand in the line.
  void takeLine(const GroupFilters& group, std::string_view text, std::uint64_t texts);
  void tellDoubt(const BruteMatch& match, std::string_view line);
  bool countUser(const BruteMatch& match, std::uint32_t filter);

  const Config& conf_;
  const std::vector<BruteFilter>& filters_;
  /// For each filter the program whose name it begins with.
  std::vector<const char*> services_;
  AddressChoice choice_;
  SuspendedAccounts suspended_;
  std::vector<std::unique_ptr<GroupFilters>> groups_;
  std::string keyRoom_;
  long long doubts_ = 0;
};

/// Reads what is new in a log. Returns 1 when anything changed: the findings, or the scan state. Works under any
/// identity, opens the log as root, leaves the process at nobody.
int scan_log(const char* path, const BruteGroup& group, ConfigFile& state, BruteScan& scan);

}  // namespace zvtaskq
