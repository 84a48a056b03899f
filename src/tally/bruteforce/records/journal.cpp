#include "tally/bruteforce/records/journal.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <vector>

#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/record/panel_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "tally/bruteforce/lines/data_paths.h"

namespace zvtaskq {

namespace {

// The journal is a record. What names a log, an address, an account or a filter in it carries one of these in front.
constexpr std::string_view kLog = "log ";
constexpr std::string_view kAddress = "ip ";
constexpr std::string_view kUser = "user ";
constexpr std::string_view kFilter = "filter ";
constexpr const char* kTime = "time";
constexpr const char* kEntries = "entries";
constexpr const char* kStarts = "starts";

void writePair(SafeFile& out, std::string_view prefix, std::string_view name, std::string_view value) {
  for (const std::string_view part : {prefix, name, std::string_view("="), value, std::string_view("\n")}) {
    out.write(part);
  }
}

void writeCounts(SafeFile& out, std::string_view prefix, const FoundFailures& found) {
  std::string record;
  for (std::uint32_t name = 0; name < found.counts.bound(); ++name) {
    record.clear();
    found.counts.each(name, [&](const BruteCounts::Count& count) {
      if (count.failures == 0) return;
      if (!record.empty()) record += '&';
      record += joined(found.filters[count.filter], "=", std::to_string(count.failures));
    });
    if (!record.empty()) writePair(out, prefix, found.names.at(name), record);
  }
}

void writeContent(SafeFile& out, const BruteFindings& findings, const SpooledEntries& entries,
                  const ConfigFile& state) {
  std::string starts;
  for (const long long start : entries.starts) starts += joined(std::to_string(start), ",");
  writePair(out, {}, kTime, std::to_string(findings.time));
  writePair(out, {}, kEntries, std::to_string(entries.count));
  writePair(out, {}, kStarts, starts);
  for (std::size_t i = 0; i < findings.filters.size(); ++i) {
    writePair(out, kFilter, std::to_string(i), findings.filters[i]);
  }
  for (long long i = 0; i < state.size(); ++i) {
    writePair(out, kLog, state.getNameAt(i), text_detail::part(state.getValueAt(i)));
  }
  writeCounts(out, kAddress, findings.addressFailures());
  writeCounts(out, kUser, findings.userFailures());
}

int writeJournal(const BruteFindings& findings, const SpooledEntries& entries, const ConfigFile& state) {
  const std::string path = bruteJournalFile();
  const AsUser panel(kPanelUser);
  SafeFile out(path.c_str());
  if (out.open()) {
    writeContent(out, findings, entries, state);
    if (out.finish() && out.putInPlace()) return 1;
  }
  errorLog("Error writing %s: %s", path.c_str(), std::strerror(errno));
  static_cast<void>(sys::unlink(out.temporaryPath()));
  return 0;
}

void removeJournal(const SpooledEntries& entries) {
  const FailScope scope("brute_journal");
  const AsUser panel(kPanelUser);
  const std::string path = bruteJournalFile();
  if (sys::unlink(path.c_str()) != 0) errorLog("Error removing %s: %s", path.c_str(), std::strerror(errno));
  syncParentFolder(path.c_str());
  static_cast<void>(sys::unlink(entries.path.c_str()));
}

int writeState(ConfigFile& state) {
  if (state.writeFile()) return 1;
  errorLog("Error writing %s: %s", state.getFilename(), state.result.orEmpty());
  return 0;
}

/// Every step can be repeated: what it has done already it finds done.
int apply(const Config& conf, const BruteFindings& findings, const SpooledEntries& entries, ConfigFile& state,
          BruteFiles& files, bool resume) {
  if (!writeState(state)) return 0;
  files.addedSince = std::min(files.addedSince, findings.time);
  debug(100, "check_brute_force_logs: begin IP sorting");
  const auto merge = [&conf](const FoundFailures& found) {
    return [&conf, found](ConfigFile& counts) { mergeBruteCounts(conf, found, counts); };
  };
  if (!files.addresses.update(merge(findings.addressFailures()))) return 0;
  debug(100, "check_brute_force_logs: done IP sorting. Begin User sorting");
  if (conf.user_brutecount == 0) {
    debug(100, "check_brute_fofce_logs: user_brute_count == 0: processing skipped for %d new Users",
          static_cast<int>(findings.users.size()));
  } else if (!files.users.update(merge(findings.userFailures()))) {
    return 0;
  }
  debug(100, "check_brute_force_logs: done User sorting");
  if (!appendBruteEntries(entries, findings.filters, findings.time, resume)) return 0;
  removeJournal(entries);
  return 1;
}

/// The first second from now on that comes after all which the scan adds to is marked with, and is the mark of none
/// that lies further ahead: that is what tells a step that was done from one that was not.
void chooseTime(BruteFindings& findings, BruteFiles& files) {
  const long long now = std::time(nullptr), latest = now + kSlightlyAhead;
  std::vector<long long> taken{timeOfLastEntry()};
  collectLastEntries(findings.addressFailures(), files.addresses.counts(), taken);
  collectLastEntries(findings.userFailures(), files.users.counts(), taken);
  std::sort(taken.begin(), taken.end());
  findings.time = now;
  for (const long long time : taken) {
    if (time <= latest ? time >= findings.time : time == findings.time) findings.time = time + 1;
  }
}

std::uint32_t filterNumber(std::vector<std::string>& filters, const std::string& name) {
  for (std::uint32_t i = 0; i < filters.size(); ++i) {
    if (filters[i] == name) return i;
  }
  filters.push_back(name);
  return static_cast<std::uint32_t>(filters.size() - 1);
}

void readCounts(std::uint32_t name, const char* record, BruteCounts& counts, std::vector<std::string>& filters) {
  ConfigFile pairs(nullptr);
  pairs.fillFromPost(record, 1);
  for (long long i = 0; i < pairs.size(); ++i) {
    bool isNew = false;
    auto& count = counts.of(name, filterNumber(filters, pairs.getNameAt(i)), isNew);
    static_cast<void>(pairs.getValue(pairs.getNameAt(i), &count.failures));
  }
}

void readContent(const ConfigFile& journal, BruteFindings& findings, SpooledEntries& entries, ConfigFile& state) {
  const auto filterAt = [&](std::size_t i) { return journal.getValue(joined(kFilter, std::to_string(i)).c_str()); };
  while (filterAt(findings.filters.size()) != nullptr) findings.filters.push_back(filterAt(findings.filters.size()));
  static_cast<void>(journal.getValue(kEntries, &entries.count));
  const char* starts = journal.getValue(kStarts);
  std::string_view rest = text_detail::part(starts);
  for (long long start = 0; !rest.empty(); rest.remove_prefix(std::min(rest.find(',') + 1, rest.size()))) {
    std::from_chars(rest.data(), rest.data() + rest.size(), start);
    entries.starts.push_back(start);
  }
  for (long long i = 0; i < journal.size(); ++i) {
    const std::string_view name = journal.getNameAt(i);
    const char* value = journal.getValueAt(i);
    if (name.starts_with(kLog)) state.setParam(std::string(name.substr(kLog.size())).c_str(), value);
    if (name.starts_with(kAddress)) {
      const std::uint32_t number = findings.addresses.numberOf(name.substr(kAddress.size()));
      if (number != NameTable::kNone) readCounts(number, value, findings.addressCounts, findings.filters);
    }
    if (name.starts_with(kUser)) {
      const std::uint32_t number = findings.users.add(name.substr(kUser.size()));
      if (number != NameTable::kNone) readCounts(number, value, findings.userCounts, findings.filters);
    }
  }
}

}  // namespace

BruteFindings::BruteFindings(const std::vector<BruteFilter>& known) {
  for (const BruteFilter& filter : known) filters.push_back(filter.name);
}

BruteFiles::BruteFiles() : addresses(bruteAddressesFile()), users(bruteUsersFile()) {}

int commitBruteFindings(const Config& conf, BruteFindings& findings, const SpooledEntries& entries, ConfigFile& state,
                        BruteFiles& files) {
  if (entries.count == 0) return state.changed ? writeState(state) : 1;
  chooseTime(findings, files);
  return writeJournal(findings, entries, state) && apply(conf, findings, entries, state, files, false) ? 1 : 0;
}

int finishBruteJournal(const Config& conf, BruteFiles& files) {
  PanelRecord journal(bruteJournalFile());
  journal.useLock = false;
  if (!journal.exists()) return 1;
  if (!journal.readFile()) {
    tellUnreadable(journal);
    return 0;
  }
  BruteFindings findings({});
  SpooledEntries entries;
  entries.path = bruteEntriesSpoolFile();
  PanelRecord state(bruteStateFile());
  if (!journal.getValue(kTime, &findings.time) || findings.time <= 0) {
    errorLog("%s is no journal of a scan for failed log-ins. Throwing it away.", journal.getFilename());
    removeJournal(entries);
    return 1;
  }
  readContent(journal, findings, entries, state);
  errorLog("Finishing what an earlier scan for failed log-ins has left undone");
  return apply(conf, findings, entries, state, files, true);
}

}  // namespace zvtaskq
