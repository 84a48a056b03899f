#include "tally/bruteforce/records/records.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>

#include "core/config/config.h"
#include "core/record/record_lock.h"
#include "core/sys/dates.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "tally/bruteforce/lines/data_paths.h"

namespace zvtaskq {

namespace {

constexpr int kListDebug = 2000;
constexpr long long kHour = 3600;
constexpr std::string_view kFirstEntry = "first_entry";
constexpr std::string_view kLastEntry = "last_entry";
constexpr std::string_view kLastNotify = "last_notify";

/// Digits that are sure to fit.
constexpr std::ptrdiff_t kSureDigits = 18;

/// The bytes of names that need no decoding.
constexpr std::array<bool, 256> kNameBytes = [] {
  std::array<bool, 256> plain{};
  for (unsigned char c = '!'; c < 0x7F; ++c) plain[c] = c != '=' && c != '&' && c != '%' && c != '+';
  return plain;
}();

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Calls `visit(name, number)` for every pair of a record in the form that this program writes: "name=digits&..." with
/// nothing escaped. `visit` returns whether to go on. False when the record turns out to be of another form. A minute's
/// pass over all records is this loop.
template <class Visit>
bool eachPlainPair(const char* record, Visit visit) {
  while (*record != '\0') {
    const char* const begin = record;
    while (kNameBytes[static_cast<unsigned char>(*record)]) ++record;
    if (*record != '=') return false;
    const std::string_view name(begin, static_cast<std::size_t>(record - begin));
    const char* const digits = ++record;
    long long number = 0;
    for (; isDigit(*record); ++record) {
      if (record - digits == kSureDigits) return false;
      number = number * 10 + (*record - '0');
    }
    if (record == digits || (*record != '&' && *record != '\0')) return false;
    if (!visit(name, number)) return true;
    if (*record == '&') ++record;
  }
  return true;
}

void addFigure(std::string_view name, long long number, BruteFigures& figures) {
  if (name == kLastEntry) {
    figures.lastEntry = number;
  } else if (name == kFirstEntry) {
    figures.firstEntry = number;
  } else if (name == kLastNotify) {
    figures.lastNotify = number;
  } else {
    figures.failures = addedUp(figures.failures, number);
  }
}

/// A record in any form. What is no number, negative or too large counts as 0.
BruteFigures oddFigures(const char* record) {
  BruteFigures figures;
  ConfigFile pairs(nullptr);
  pairs.fillFromPost(record);
  for (long long i = 0; i < pairs.size(); ++i) {
    const std::string_view value = pairs.getValueAt(i);
    long long number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    addFigure(pairs.getNameAt(i), std::max(number, 0LL), figures);
  }
  return figures;
}

/// The time of the last failure alone, which stands near the beginning; 0 for none.
long long lastEntryIn(const char* record) {
  long long last = 0;
  const auto look = [&last](std::string_view name, long long number) {
    if (name == kLastEntry) last = number;
    return name != kLastEntry;
  };
  return record == nullptr || eachPlainPair(record, look) ? last : oddFigures(record).lastEntry;
}

/// Adds a scan's counts of a name to its record, which is null when there is none.
std::string mergedRecord(const FoundFailures& found, std::uint32_t name, const char* record) {
  ConfigFile pairs(nullptr);
  pairs.fillFromPost(record == nullptr ? "" : record);
  found.counts.each(name, [&](const BruteCounts::Count& count) {
    if (count.failures == 0) return;
    const char* filter = found.filters[count.filter].c_str();
    long long before = 0;
    static_cast<void>(pairs.getValue(filter, &before));
    pairs.setParam(filter, addedUp(before, count.failures));
  });
  if (record == nullptr) pairs.setParam(kFirstEntry.data(), found.time);
  pairs.setParam(kLastEntry.data(), found.time);
  return pairs.createPostString(0).orEmpty();
}

bool hasFailures(const FoundFailures& found, std::uint32_t name) {
  bool any = false;
  found.counts.each(name, [&](const BruteCounts::Count& count) { any = any || count.failures > 0; });
  return any;
}

/// What one has to be stronger than to stay: the failures, then how late the last was.
struct Strength {
  long long failures;
  long long lastEntry;
  long long index;
  bool operator<(const Strength& other) const {
    return failures != other.failures ? failures < other.failures : lastEntry < other.lastEntry;
  }
};

/// The weakest entries make room, so that who makes up names does not hide behind them.
void dropWeakest(ConfigFile& counts) {
  const long long excess = counts.size() - kMostBruteNames;
  if (excess <= 0) return;
  std::vector<Strength> all;
  all.reserve(static_cast<std::size_t>(counts.size()));
  for (long long i = 0; i < counts.size(); ++i) {
    const BruteFigures figures = figuresOf(counts.getValueAt(i));
    all.push_back({figures.failures, figures.lastEntry, i});
  }
  std::nth_element(all.begin(), all.begin() + excess, all.end());
  for (long long i = 0; i < excess; ++i) counts.deleteParamAt(all[static_cast<std::size_t>(i)].index);
  counts.shift_down_and_count();
  errorLog("%s holds more than %lld names: the %lld with the fewest failures are dropped", counts.getFilename(),
           kMostBruteNames, excess);
}

}  // namespace

BruteFigures figuresOf(const char* record) {
  BruteFigures figures;
  const auto add = [&figures](std::string_view name, long long number) {
    addFigure(name, number, figures);
    return true;
  };
  return record == nullptr || eachPlainPair(record, add) ? figures : oddFigures(record);
}

BruteRecords::BruteRecords(std::string path) : path_(std::move(path)) {
  startAnew();
}

void BruteRecords::startAnew() {
  counts_ = std::make_unique<ConfigFile>(path_.c_str());
  counts_->belongsTo(kPanelUser);
}

int BruteRecords::readThere() {
  if (!counts_->exists() || counts_->readFile()) return 1;
  tellUnreadable(*counts_);
  return 0;
}

int BruteRecords::read() {
  startAnew();
  return readThere();
}

int BruteRecords::update(const std::function<void(ConfigFile&)>& change) {
  startAnew();
  const RecordLock lock(*counts_);
  if (!readThere()) return 0;
  change(*counts_);
  if (!counts_->changed || counts_->writeFile()) return 1;
  errorLog("Error writing %s: %s", path_.c_str(), counts_->result.orEmpty());
  return 0;
}

long long clear_old_brute_entries(const Config& conf, ConfigFile& counts) {
  if (conf.clear_brute_log_time == 0) return 0;
  const long long now = std::time(nullptr);
  const long long oldest = now - conf.clear_brute_log_time * kHour;
  std::vector<long long> removed;
  long long ahead = 0;
  for (long long i = 0; i < counts.size(); ++i) {
    const long long last = lastEntryIn(counts.getValueAt(i));
    if (last < oldest) removed.push_back(i);
    if (!ageOf(last, now, kSlightlyAhead).isAhead) continue;
    ++ahead;
    ConfigFile pairs(nullptr);
    pairs.fillFromPost(counts.getValueAt(i));
    pairs.setParam(kLastEntry.data(), now);
    counts.setParam_in_place(i, pairs.createPostString(0).release());
  }
  if (!removed.empty() && isDebug() >= kListDebug) {
    debug(kListDebug, "Removed the following entries from %s. More than %d hours since last entry.",
          counts.getFilename(), conf.clear_brute_log_time);
    for (const long long i : removed) debug(kListDebug, "%s", counts.getNameAt(i));
  }
  for (const long long i : removed) counts.deleteParamAt(i);
  if (!removed.empty()) counts.shift_down_and_count();
  if (ahead > 0) {
    errorLog("%s: the last_entry of %lld records is not in the past. Taking it for now.", counts.getFilename(), ahead);
  }
  return static_cast<long long>(removed.size()) + ahead;
}

bool holdsOldBruteEntries(const Config& conf, const ConfigFile& counts) {
  if (conf.clear_brute_log_time == 0) return false;
  const long long now = std::time(nullptr);
  for (long long i = 0; i < counts.size(); ++i) {
    const long long last = lastEntryIn(counts.getValueAt(i));
    if (last < now - conf.clear_brute_log_time * kHour || ageOf(last, now, kSlightlyAhead).isAhead) {
      return true;
    }
  }
  return false;
}

void mergeBruteCounts(const Config& conf, const FoundFailures& found, ConfigFile& counts) {
  const auto slotOf = [&](std::uint32_t name) { return counts.getIndex(std::string(found.names.at(name)).c_str()); };
  // Looked for before stale records go, and before any gets another time for one that lay in the future.
  std::vector<bool> isDone(found.counts.bound());
  for (std::uint32_t name = 0; name < found.counts.bound(); ++name) {
    const long long there = hasFailures(found, name) ? slotOf(name) : -1;
    isDone[name] = there >= 0 && lastEntryIn(counts.getValueAt(there)) == found.time;
  }
  static_cast<void>(clear_old_brute_entries(conf, counts));
  std::vector<std::uint32_t> added;
  for (std::uint32_t name = 0; name < found.counts.bound(); ++name) {
    if (isDone[name] || !hasFailures(found, name)) continue;
    const long long there = slotOf(name);
    if (there < 0) {
      added.push_back(name);
    } else {
      counts.setParam_in_place(there, newString(mergedRecord(found, name, counts.getValueAt(there))));
    }
  }
  for (const std::uint32_t name : added) {
    counts.setParam(std::string(found.names.at(name)).c_str(), mergedRecord(found, name, nullptr).c_str());
  }
  dropWeakest(counts);
}

void collectLastEntries(const FoundFailures& found, const ConfigFile& counts, std::vector<long long>& times) {
  for (std::uint32_t name = 0; name < found.counts.bound(); ++name) {
    if (!hasFailures(found, name)) continue;
    const long long there = counts.getIndex(std::string(found.names.at(name)).c_str());
    if (there >= 0) times.push_back(lastEntryIn(counts.getValueAt(there)));
  }
}

}  // namespace zvtaskq
