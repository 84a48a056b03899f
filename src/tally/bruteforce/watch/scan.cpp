#include "tally/bruteforce/watch/scan.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/files/safe_file.h"
#include "core/panel/marks.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "tally/bruteforce/lines/data_paths.h"
#include "tally/bruteforce/lines/log_position.h"

namespace zvtaskq {

namespace {

constexpr int kWebLogs = 8;
constexpr int kScanDebug = 1000;
constexpr long long kMarkEvery = 1000;
/// How many doubtful lines one scan tells of one by one: whoever makes them must not fill our logs.
constexpr long long kDoubtsTold = 5;
constexpr int kLongestShown = 1024;
/// What one scan keeps in memory: then it is committed, and the next one goes on.
constexpr std::size_t kMostNames = 250'000;
constexpr std::size_t kMostNameBytes = std::size_t{16} << 20;

std::vector<std::string> textsOf(const std::vector<const BruteFilter*>& filters) {
  std::vector<std::string> texts;
  for (const BruteFilter* filter : filters) texts.push_back(filter->text);
  return texts;
}

const char* programOf(const BruteGroup& group, const BruteFilter& filter) {
  for (const char* const* program = group.programs; *program != nullptr; ++program) {
    if (filter.name.starts_with(*program)) return *program;
  }
  return nullptr;
}

/// Lines of a log may be as long as their writer likes.
int shownLength(std::string_view line) {
  return std::min(static_cast<int>(line.size()), kLongestShown);
}

}  // namespace

// --- Lines -----------------------------------------------------------------------------------------------------

BruteScan::BruteScan(const Config& conf, const std::vector<BruteFilter>& filters)
    : findings(filters),
      spool(bruteEntriesSpoolFile()),
      conf_(conf),
      filters_(filters),
      services_(filters.size(), ""),
      choice_(addressChoiceOf(conf.brute_force_ambiguous_ip)),
      suspended_(conf) {}

BruteScan::GroupFilters& BruteScan::filtersOf(const BruteGroup& group) {
  for (const auto& known : groups_) {
    if (known->group == group.number) return *known;
  }
  std::vector<const BruteFilter*> chosen;
  for (std::size_t i = 0; i < filters_.size(); ++i) {
    const char* program = programOf(group, filters_[i]);
    if (program == nullptr) continue;
    chosen.push_back(&filters_[i]);
    services_[i] = program;
  }
  groups_.push_back(std::make_unique<GroupFilters>(GroupFilters{group.number, chosen, LineSearch(textsOf(chosen))}));
  return *groups_.back();
}

void BruteScan::takeLines(const BruteGroup& group, std::string_view lines, long long& lineCount) {
  constexpr std::size_t kSample = std::size_t{16} * 1024;
  GroupFilters& filters = filtersOf(group);
  if (!filters.hasLearned) filters.search.learn(lines.substr(0, kSample));
  filters.hasLearned = true;
  const char* at = lines.data();
  const char* const end = at + lines.size();
  for (;;) {
    const char* found = filters.search.find(at, end, lineCount);
    if (found == end) return;
    const auto* feed = static_cast<const char*>(::memrchr(at, '\n', static_cast<std::size_t>(found - at)));
    const char* const start = feed == nullptr ? at : feed + 1;
    std::string_view rest(start, static_cast<std::size_t>(end - start)), line;
    if (!nextLine(rest, line)) return;
    ++lineCount;
    takeLine(filters, line, filters.search.textsIn(line, found, end));
    at = rest.data();
  }
}

void BruteScan::takeLine(const GroupFilters& group, std::string_view text, std::uint64_t texts) {
  BruteMatch match;
  if (!parseLine(group.filters, BruteLine(text), choice_, findings.addresses, match, texts)) return;
  const auto filter = static_cast<std::uint32_t>(match.filter - filters_.data());
  const bool hasAddress = match.address != NameTable::kNone;
  if (match.isMisplaced || match.isAmbiguous) tellDoubt(match, text);
  spool.add({match.attempts, filter, hasAddress ? findings.addresses.clean().at(match.address) : std::string_view(),
             match.user, text});
  if (!countUser(match, filter) || !hasAddress) return;
  bool isNew = false;
  BruteCounts::Count& count = findings.addressCounts.of(match.address, filter, isNew);
  count.failures = addedUp(count.failures, match.attempts);
}

/// False when the failure counts for nobody, because the account is suspended.
bool BruteScan::countUser(const BruteMatch& match, std::uint32_t filter) {
  if (match.user.empty()) return true;
  const std::uint32_t user = findings.users.add(bruteUserKey(match.user, keyRoom_));
  if (user == NameTable::kNone) return true;
  bool isNew = false;
  BruteCounts::Count& count = findings.userCounts.of(user, filter, isNew);
  if (isNew && conf_.brute_force_ignore_attempts_on_suspended) {
    count.isExempt = suspended_.isSuspended(std::string(match.user).c_str(), services_[filter]);
  }
  if (count.isExempt) {
    debug(kScanDebug, "Failed login attempt on '%.*s' but this account is suspended.  Ignoring failed attempt.",
          shownLength(match.user), match.user.data());
    return false;
  }
  count.failures = addedUp(count.failures, match.attempts);
  return true;
}

void BruteScan::tellDoubt(const BruteMatch& match, std::string_view line) {
  if (++doubts_ > kDoubtsTold) return;
  const int length = shownLength(line);
  if (match.isMisplaced && match.address == NameTable::kNone) {
    errorLog("Tally::scan_log: Unable to determine IP value from string: %.*s", shownLength(match.addressText),
             match.addressText.data());
    return;
  }
  const char* counted =
      match.address == NameTable::kNone ? "none" : findings.addresses.clean().at(match.address).data();
  const char* what = match.isMisplaced ? "no address where the address should be" : "more than one address";
  securityLog("Tally::scan_log: a failed log-in with %s, counting %s: %.*s", what, counted, length, line.data());
}

void BruteScan::tellDoubts() const {
  if (doubts_ <= kDoubtsTold) return;
  securityLog("Tally::scan_log: %lld more failed log-ins with more than one address, or none where it should be",
              doubts_ - kDoubtsTold);
}

bool BruteScan::isFull() const {
  const NameTable& addresses = findings.addresses.clean();
  return addresses.size() + findings.users.size() > kMostNames ||
         addresses.textSize() + findings.users.textSize() > kMostNameBytes;
}

// --- Files -----------------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t kLongestReason = 300;

/// Whether there is a word to say of a log, or of what became of it: about a log that cannot be read once, and again
/// when the reason is another, when it could be read in between, or after a day.
bool isNewOf(const BruteGroup& group, const char* path, const char* what) {
  const std::string about = printable(joined(what, ": ", path)).substr(0, kLongestReason);
  return isDueAgain(joined("brute_log_", std::to_string(group.number)).c_str(), about);
}

/// With the reason in errno.
int cannotOpen(const char* path, const BruteGroup& group) {
  const char* why = std::strerror(errno);
  if (group.isExpected && isNewOf(group, path, why)) {
    errorLog("Unable to open %s for reading", path);
  } else {
    debug(kScanDebug, "Unable to open %s for reading", path);
  }
  return 0;
}

int leaveEmpty(const char* path, const BruteGroup& group, ConfigFile& state, const struct stat& now) {
  if (group.number != kWebLogs) {
    debug(kScanDebug, "Tally::scan_log: %s:   cur_size is 0 bytes. Ignoring.", path);
    LogPosition empty;
    empty.mark.inode = now.st_ino;
    return set_last_scan_info(path, state, empty);
  }
  debug(kScanDebug,
        "Tally::scan_log: %s:   cur_size is 0 bytes. Apache log: removing from brute.conf (it might be deleted).",
        path);
  return state.deleteParam(path);
}

Descriptor openLog(const char* path) {
  const AsRoot root;
  return openRegularFile(path);
}

/// 0, or what errno was.
int statLog(const char* path, struct stat& now) {
  const AsRoot root;
  return ::stat(path, &now) == 0 ? 0 : errno;
}

/// Reads on from a place. Where it got to: of a file that was cut meanwhile, the beginning of what is written next.
LogPosition readLog(const char* path, int fd, long long start, const BruteGroup& group, BruteScan& scan) {
  LogPosition reached;
  if (::lseek(fd, start, SEEK_SET) < 0) return reached;
  LineReader blocks(fd, LongLines::chop);
  long long count = 0;
  for (std::string_view lines; blocks.nextBlock(lines);) {
    const long long before = count;
    scan.takeLines(group, lines, count);
    if (before / kMarkEvery != count / kMarkEvery) {
      set_program_location("Tally::scan_log(%s) at line %lld", path, count / kMarkEvery * kMarkEvery);
      atSafePoint();
    }
    if (scan.isFull()) break;
  }
  if (blocks.failed()) errorLog("Error reading %s: %s", path, std::strerror(errno));
  const long long position = start + blocks.consumed();
  reached.mark = LogMark::at(fd, position);
  // Where the end was met, or where a full scan stopped, so that the next one does not find it unchanged.
  if (reached.mark.offset == position) reached.size = position + (scan.isFull() ? 0 : blocks.unfinished());
  return reached;
}

Descriptor openTail(const char* path, const LogMark& mark) {
  const AsRoot root;
  return openRotated(path, mark);
}

/// What the log still got after the last scan and before it was put aside or emptied. Where the scan got to, should it
/// be full.
LogPosition readTail(const char* path, const LogPosition& last, const BruteGroup& group, BruteScan& scan) {
  if (last.mark.check == 0 || last.mark.offset == 0) return {};
  const Descriptor tail = openTail(path, last.mark);
  return tail ? readLog(path, tail.get(), last.mark.offset, group, scan) : LogPosition();
}

}  // namespace

int scan_log(const char* path, const BruteGroup& group, ConfigFile& state, BruteScan& scan) {
  if (path == nullptr || *path == '\0' || !canKeepTrackOf(path)) return 0;
  LogPosition last;
  static_cast<void>(get_last_scan_info(path, state, last));
  struct stat now {};
  if (const int error = statLog(path, now); error != 0) {
    errno = error;
    return group.number == kWebLogs && error == ENOENT ? leaveEmpty(path, group, state, now) : cannotOpen(path, group);
  }
  if (newsOf(path, last, now, -1) == LogNews::nothing) return 0;
  const Descriptor log = openLog(path);
  if (!log) return cannotOpen(path, group);
  if (sys::fstat(log.get(), now) != 0) return cannotOpen(path, group);
  if (group.isExpected) static_cast<void>(isNewOf(group, path, "readable"));
  const LogNews news = newsOf(path, last, now, log.get());
  if (news == LogNews::nothing) return 0;
  if (news != LogNews::more) {
    const LogPosition tail = readTail(path, last, group, scan);
    if (scan.isFull() && tail.size > 0) return set_last_scan_info(path, state, tail);
  }
  if (news == LogNews::empty) return leaveEmpty(path, group, state, now);
  const LogPosition reached = readLog(path, log.get(), news == LogNews::more ? last.mark.offset : 0, group, scan);
  debug(kScanDebug, "Tally::scan_log(conf, %s): DONE", path);
  return set_last_scan_info(path, state, reached);
}

}  // namespace zvtaskq
