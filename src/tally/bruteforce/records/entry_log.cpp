#include "tally/bruteforce/records/entry_log.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <string_view>

#include "core/config/config.h"
#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/read/line_reader.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "core/text/post_string.h"
#include "tally/bruteforce/lines/data_paths.h"

namespace zvtaskq {

namespace {

constexpr long long kDay = 86400;
constexpr const char* kHook = "brute_force_clear_log_ip.sh";
constexpr int kHookTime = 60;

constexpr std::size_t kBlock = 64UL * 1024;

/// What the trimming wants to know of an entry.
struct Entry {
  long long time = 0;
  std::string address;
};

/// Reads a line "key=record". False when it is no entry with a time.
bool readEntry(std::string_view line, std::string& room, Entry& entry) {
  const std::size_t separator = line.find('=');
  if (separator == std::string_view::npos) return false;
  entry = {};
  room.resize(line.size() + 1);
  PostReader record(line.substr(separator + 1), room.data(), 0);
  for (bool last = false; !last;) {
    const PostPart name = record.takeName();
    if (name.isLast) break;
    const PostPart value = record.takeValue();
    last = value.isLast;
    const std::string_view key(name.text, name.length);
    if (key == "ip") entry.address.assign(value.text, value.length);
    if (key != "time") continue;
    const char* end = value.text + value.length;
    const auto [behind, error] = std::from_chars(value.text, end, entry.time);
    if (error != std::errc() || behind != end) return false;
  }
  return entry.time > 0;
}

/// One pass over the list: what stays is copied as it stands, byte by byte, in stretches between what goes.
class Trimming {
 public:
  Trimming(const char* path, int source, long long limit) : path_(path), source_(source), limit_(limit), kept_(path) {}

  /// 0 with an error-log line; nothing has happened to the list then.
  [[nodiscard]] int run();
  long long removed() const { return removed_; }
  const std::set<std::string>& addresses() const { return addresses_; }

 private:
  int refuse();
  [[nodiscard]] int keepUpTo(long long end);
  [[nodiscard]] int removeFrom(long long start, const Entry& entry);
  [[nodiscard]] int replace();

  const char* path_;
  int source_;
  long long limit_;
  SafeFile kept_;
  long long copied_ = 0;
  long long removed_ = 0;
  std::set<std::string> addresses_;
};

int Trimming::refuse() {
  const std::string why = std::strerror(errno);
  errorLog("Error writing %s: %s", kept_.temporaryPath(), why.c_str());
  static_cast<void>(sys::unlink(kept_.temporaryPath()));
  return 0;
}

int Trimming::keepUpTo(long long end) {
  std::string block;
  while (copied_ < end) {
    block.resize(static_cast<std::size_t>(std::min<long long>(end - copied_, kBlock)));
    const ssize_t got = ::pread(source_, block.data(), block.size(), copied_);
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = EIO;
    if (got <= 0) return 0;
    kept_.write(std::string_view(block).substr(0, static_cast<std::size_t>(got)));
    copied_ += got;
  }
  return 1;
}

int Trimming::removeFrom(long long start, const Entry& entry) {
  if (removed_++ == 0 && !kept_.open()) return 0;
  if (isValidIP(entry.address.c_str())) addresses_.insert(entry.address);
  return keepUpTo(start);
}

int Trimming::run() {
  LineReader lines(source_);
  Entry entry;
  std::string room;
  long long start = 0;
  for (std::string_view line; lines.next(line); start = lines.consumed()) {
    if (!readEntry(line, room, entry) || entry.time > limit_) continue;
    if (!removeFrom(start, entry)) return refuse();
    copied_ = lines.consumed();
  }
  if (lines.failed()) {
    errorLog("Unable to read %s: %s", path_, std::strerror(errno));
    if (removed_ > 0) static_cast<void>(sys::unlink(kept_.temporaryPath()));
    return 0;
  }
  if (removed_ == 0) return 1;
  // What nobody has finished writing yet stays too, and what came since from somebody who broke a lock that was held
  // for long.
  struct stat what {};
  return sys::fstat(source_, what) == 0 && keepUpTo(what.st_size) && kept_.finish() ? replace() : refuse();
}

int Trimming::replace() {
  debug(100, "%s is closed. Attempting to rename to master file", kept_.temporaryPath());
  if (kept_.putInPlace()) return 1;
  errorLog("Unable to move %s to %s : %s", kept_.temporaryPath(), path_, std::strerror(errno));
  static_cast<void>(sys::unlink(kept_.temporaryPath()));
  return 0;
}

void tellRemoved(const Trimming& trimming) {
  systemLog("Done removing old entires");
  systemLog("Removed %s log entires:", std::to_string(trimming.removed()).c_str());
  for (const std::string& address : trimming.addresses()) debug(2000, "%s", address.c_str());
}

void runHooks(const Config& conf, const std::set<std::string>& addresses, int hookTime) {
  if (!hookExists(conf, kHook)) return;
  const std::string hook = hookPath(conf, kHook);
  HookBudget budget(hookTime);
  std::size_t done = 0;
  for (const std::string& address : addresses) {
    if (budget.isSpent()) {
      errorLog("%s takes too long: from %s on it is not told of %zu addresses", hook.c_str(), address.c_str(),
               addresses.size() - done);
      return;
    }
    ++done;
    const HookAnswer answer = budget.run(hook.c_str(), {{"value", address}}, kHookTime);
    if (answer.failed()) {
      errorLog("Clear IP '%s' error: Script output: %s", address.c_str(), answer.error.c_str());
    } else if (!answer.result.empty()) {
      systemLog("Clear IP '%s': Script output: %s", address.c_str(), answer.result.c_str());
    }
  }
}

}  // namespace

int clear_brute_log_entries(const Config* conf, int hookTime) {
  if (conf->clear_brute_log_entry_time <= 0) return 1;
  const std::string path = bruteEntriesFile();
  std::set<std::string> addresses;
  {
    const AsUser panel(kPanelUser);
    FileLock lock;
    if (!lock.take(path.c_str(), kLockMaximumAge, "clear_brute_log_entries", nullptr)) {
      errorLog("Tally::clear_brute_log_entries: Unable to lock %s", path.c_str());
      return 0;
    }
    const Descriptor source = openPanelFile(path.c_str());
    if (!source && errno == ENOENT) return 1;
    if (!source) {
      errorLog("Unable to open %s for reading: %s", path.c_str(), std::strerror(errno));
      return 0;
    }
    Trimming trimming(path.c_str(), source.get(), std::time(nullptr) - conf->clear_brute_log_entry_time * kDay);
    if (!trimming.run()) return 0;
    if (trimming.removed() == 0) return 1;
    tellRemoved(trimming);
    addresses = trimming.addresses();
  }
  runHooks(*conf, addresses, hookTime);
  return 1;
}

}  // namespace zvtaskq
