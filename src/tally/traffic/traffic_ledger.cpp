#include "tally/traffic/traffic_ledger.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include "core/config/config.h"
#include "core/files/append_file.h"
#include "core/files/lock_file.h"
#include "core/files/paths.h"
#include "core/files/private_folder.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/read/line_reader.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr const char* kFolder = "traffic";
/// The pairs of a note: when lines were entered last, whether they are being entered, sums and marks.
constexpr const char* kTime = "time";
constexpr const char* kEntering = "entering";
constexpr std::string_view kSum = "bytes_", kMark = "mark_";
constexpr mode_t kFolderMode = 0700;

std::string noteFile(const char* name) {
  return joined(adminFile(kFolder), "/", name);
}

/// Whether the file has that very line. The beginning of it at the file's end, which a power cut left, is cut off:
/// ended by the next line it would count.
bool hasLine(const std::string& path, std::string_view wanted) {
  FileLock lock;
  static_cast<void>(lock.take(path.c_str(), kLockMaximumAge, "TrafficLedger", nullptr));
  const Descriptor file(sys::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW));
  if (!file) return false;
  LineReader reader(file.get());
  for (std::string_view line; reader.next(line);) {
    if (line == wanted) return true;
  }
  std::string tail(static_cast<std::size_t>(std::min<long long>(reader.unfinished(), 1024)), '\0');
  const ssize_t got = ::pread(file.get(), tail.data(), tail.size(), reader.consumed());
  if (got == static_cast<ssize_t>(tail.size()) && !tail.empty() && wanted.starts_with(tail)) {
    static_cast<void>(sys::ftruncate(file.get(), reader.consumed()));
  }
  return false;
}

}  // namespace

TrafficLedger::TrafficLedger(const char* name, const char* file, const char* type)
    : file_(file), type_(type), note_(noteFile(name).c_str()) {
  note_.setUser(nullptr);
}

int TrafficLedger::open() {
  const FailScope scope("traffic_ledger");
  folder_ = openPrivateFolder(adminFile(kFolder).c_str(), kFolderMode);
  if (!folder_ || sys::flockNow(folder_.get(), LOCK_EX) != 0) {
    errorLog("Unable to open %s: %s", adminFile(kFolder).c_str(), std::strerror(errno));
    return 0;
  }
  if (pathExists(note_.getFilename()) && !note_.readFile()) {
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
  enterSums(true);
  return writeNote();
}

void TrafficLedger::add(std::string_view account, unsigned long long bytes) {
  if (bytes == 0) return;
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
  note_.setParam(kTime, std::max<long long>(std::time(nullptr), last + 1));
  note_.setParam(kEntering, 1);
  if (!writeNote()) return 0;
  enterSums(false);
  return writeNote();
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

void TrafficLedger::enterSums(bool afterCrash) {
  note_.setParam(kEntering, 0);
  if (sums_.empty()) return;
  std::erase_if(sums_, [&](const auto& sum) { return enterLine(sum.first, sum.second, afterCrash); });
  // The note must not outlive a power cut that the lines do not.
  const Descriptor users(sys::open(sys_conf->userdata, O_RDONLY | O_DIRECTORY));
  if (!users || sys::syncfs(users.get()) != 0)
    errorLog("Unable to flush %s: %s", sys_conf->userdata.orEmpty(), std::strerror(errno));
}

/// True when there is nothing left to do about the line.
bool TrafficLedger::enterLine(const std::string& account, unsigned long long bytes, bool afterCrash) const {
  if (!pathExists(accountFile(account.c_str(), nullptr).c_str(), PathKind::folder)) return true;
  const std::string path = accountFile(account.c_str(), file_.c_str());
  const std::string line =
      joined(std::to_string(bytes), "=type=", type_, "&time=", text_detail::part(note_.getValue(kTime)));
  if (afterCrash && hasLine(path, line)) return true;
  if (appendLines(path.c_str(), joined(line, "\n"), "TrafficLedger") == Appended::done) return true;
  errorLog("Unable to open %s for appending", path.c_str());
  return false;
}

}  // namespace zvtaskq
