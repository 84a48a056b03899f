#include "tally/traffic/traffic_ledger.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <iterator>

#include "core/config/config.h"
#include "core/files/append_file.h"
#include "core/files/lock_file.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/read/line_reader.h"
#include "core/sys/dates.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"

namespace zvtaskq {

namespace {

constexpr const char* kFolder = "traffic";
/// The pairs of a note: when lines were entered last, whether they are being entered, sums and marks.
constexpr const char* kTime = "time";
constexpr const char* kEntering = "entering";
constexpr std::string_view kSum = "bytes_", kMark = "mark_";
/// Seconds that the time of the last lines may be ahead, as every entering takes a later one.
constexpr long long kSlack = 86400;

std::string noteFile(const char* name) {
  return stateFile(joined(kFolder, "/", name));
}

enum class Found { yes, no, cannotTell };

/// Whether the file has that very line. The beginning of it at the file's end, which a power cut left, is cut off:
/// ended by the next line it would count.
Found findLine(const std::string& path, std::string_view wanted) {
  FileLock lock;
  static_cast<void>(lock.take(path.c_str(), kLockMaximumAge, "TrafficLedger", nullptr));
  const Descriptor file(sys::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW));
  if (!file) return errno == ENOENT || errno == ELOOP || errno == EISDIR ? Found::no : Found::cannotTell;
  LineReader reader(file.get());
  for (std::string_view line; reader.next(line);) {
    if (line == wanted) return Found::yes;
  }
  if (reader.failed()) return Found::cannotTell;
  std::string tail(static_cast<std::size_t>(std::min<long long>(reader.unfinished(), 1024)), '\0');
  const ssize_t got = ::pread(file.get(), tail.data(), tail.size(), reader.consumed());
  if (got == static_cast<ssize_t>(tail.size()) && !tail.empty() && wanted.starts_with(tail)) {
    static_cast<void>(sys::ftruncate(file.get(), reader.consumed()));
  }
  return Found::no;
}

/// The names of all accounts there may be, in order. 0 with errno when they cannot be read.
int readAccounts(std::vector<std::string>& accounts) {
  const Descriptor folder(sys::open(sys_conf->userdata.orEmpty(), O_RDONLY | O_DIRECTORY));
  if (!folder || !namesIn(folder.get(), accounts)) return 0;
  std::sort(accounts.begin(), accounts.end());
  return 1;
}

}  // namespace

TrafficLedger::TrafficLedger(const char* name, const char* file, const char* type)
    : file_(file), type_(type), note_(noteFile(name)) {}

int TrafficLedger::open() {
  const FailScope scope("traffic_ledger");
  folder_ = openStateFolder(kFolder);
  if (!folder_ || sys::flockNow(folder_.get(), LOCK_EX) != 0) {
    errorLog("Unable to open %s: %s", stateFile(kFolder).c_str(), std::strerror(errno));
    return 0;
  }
  if (!readAccounts(accounts_)) {
    errorLog("Unable to read %s: %s", sys_conf->userdata.orEmpty(), std::strerror(errno));
    return 0;
  }
  if ((pathExists(note_.getFilename()) || errno != ENOENT) && !note_.readFile()) {
    errorLog("Unable to read %s: %s", note_.getFilename(), note_.result.orEmpty());
    return 0;
  }
  for (long long i = 0; i < note_.size(); ++i) {
    const std::string_view name = note_.getNameAt(i);
    unsigned long long bytes = 0;
    if (!name.starts_with(kSum) || !note_.getValue(note_.getNameAt(i), &bytes)) continue;
    sums_.emplace(name.substr(kSum.size()), bytes);
  }
  if (!note_.isValue(kEntering, "1")) return 1;
  return enterSums(true) ? writeNote() : 0;
}

void TrafficLedger::add(std::string_view account, unsigned long long bytes) {
  if (bytes == 0 || !std::binary_search(accounts_.begin(), accounts_.end(), account)) return;
  changed_ = true;
  const auto found = sums_.find(account);
  if (found == sums_.end()) {
    sums_.emplace(account, bytes);
  } else {
    found->second = bytes > ULLONG_MAX - found->second ? ULLONG_MAX : found->second + bytes;
  }
}

LogMark TrafficLedger::mark(const std::string& log) const {
  return LogMark::fromText(note_.getValue(joined(kMark, log).c_str()));
}

void TrafficLedger::setMark(const std::string& log, const LogMark& mark) {
  const std::string name = joined(kMark, log);
  const std::string text = mark.text();
  if (mark.offset <= 0) {
    changed_ = note_.deleteParam(name.c_str()) || changed_;
  } else if (!note_.isValue(name.c_str(), text.c_str())) {
    note_.setParam(name.c_str(), text.c_str());
    changed_ = true;
  }
}

int TrafficLedger::enter() {
  const FailScope scope("traffic_ledger");
  if (!changed_ && sums_.empty()) return 1;
  long long last = 0;
  static_cast<void>(note_.getValue(kTime, &last));
  const long long now = std::time(nullptr);
  const bool isAhead = ageOf(last, now, kSlack).isAhead;
  if (isAhead) errorLog("%s: the time %lld has not come yet. Taking it for now.", note_.getFilename(), last);
  note_.setParam(kTime, isAhead ? now : std::max(now, last + 1));
  note_.setParam(kEntering, 1);
  if (!writeNote()) return 0;
  return enterSums(false) ? writeNote() : 0;
}

/// Puts the sums into the note and the note onto the disk.
int TrafficLedger::writeNote() {
  for (long long i = note_.size() - 1; i >= 0; --i) {
    if (std::string_view(note_.getNameAt(i)).starts_with(kSum)) note_.deleteParamAt(i);
  }
  note_.shift_down_and_count();
  for (const auto& [account, bytes] : sums_) note_.setParam(joined(kSum, account).c_str(), bytes);
  changed_ = false;
  if (note_.writeFile()) return 1;
  errorLog("Unable to write %s: %s", note_.getFilename(), note_.result.orEmpty());
  return 0;
}

/// 0 when the note with the sums must stay as it is: a line may be there or not, or may not be safe on the disk yet.
int TrafficLedger::enterSums(bool afterCrash) {
  const bool isEmpty = sums_.empty();
  if (afterCrash && !dropEntered()) return 0;
  note_.setParam(kEntering, 0);
  if (isEmpty) return 1;
  std::erase_if(sums_, [&](const auto& sum) { return enterLine(sum.first, sum.second); });
  const Descriptor users(sys::open(sys_conf->userdata, O_RDONLY | O_DIRECTORY));
  if (users && sys::syncfs(users.get()) == 0) return 1;
  errorLog("Unable to flush %s: %s", sys_conf->userdata.orEmpty(), std::strerror(errno));
  return 0;
}

std::string TrafficLedger::lineOf(unsigned long long bytes) const {
  return joined(std::to_string(bytes), "=type=", type_, "&time=", text_detail::part(note_.getValue(kTime)));
}

/// Forgets the sums whose lines are there. 0 with an error-log line when that cannot be told of all.
int TrafficLedger::dropEntered() {
  for (auto sum = sums_.begin(); sum != sums_.end();) {
    const std::string path = accountFile(sum->first.c_str(), file_.c_str());
    const Found found = findLine(path, lineOf(sum->second));
    if (found == Found::cannotTell) {
      errorLog("Unable to read %s: %s", path.c_str(), std::strerror(errno));
      return 0;
    }
    sum = found == Found::yes ? sums_.erase(sum) : std::next(sum);
  }
  return 1;
}

/// True when there is nothing left to do about the line.
bool TrafficLedger::enterLine(const std::string& account, unsigned long long bytes) const {
  if (!pathExists(accountFile(account.c_str(), nullptr).c_str(), PathKind::folder)) return true;
  const std::string path = accountFile(account.c_str(), file_.c_str());
  if (appendLines(path.c_str(), joined(lineOf(bytes), "\n"), "TrafficLedger") == Appended::done) return true;
  errorLog("Unable to open %s for appending", path.c_str());
  return false;
}

}  // namespace zvtaskq
