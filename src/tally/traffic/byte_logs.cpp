#include "tally/traffic/byte_logs.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>

#include "core/config/config.h"
#include "core/panel/state_folder.h"
#include "core/sys/dates.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/tree/folder_reader.h"
#include "core/tree/guarded_folder.h"
#include "tally/logs/web_logs.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kEnding = ".bytes";
constexpr const char* kNote = "tally_stamps";
constexpr const char* kLast = "last";
/// Before the stamp of a tally that goes on, or did not come to its end.
constexpr std::string_view kOpen = "open";
constexpr int kGrace = 5;
constexpr int kBetweenLooks = 50;
/// Seconds that the stamps may be ahead of the clock: after that many tallies in a second, or a clock put back.
constexpr long long kSlack = 86400;

bool isNumber(std::string_view text, long long& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number >= 0;
}

}  // namespace

bool readAsideName(std::string_view name, std::string_view log, AsideLog& out) {
  if (!name.starts_with(log) || name.size() <= log.size() + 1 || name[log.size()] != '.') return false;
  std::string_view numbers = name.substr(log.size() + 1);
  const std::size_t dot = numbers.find('.');
  long long another = 0;
  if (dot != std::string_view::npos && !isNumber(numbers.substr(dot + 1), another)) return false;
  out.name = name;
  return isNumber(numbers.substr(0, dot), out.stamp);
}

ByteLogs::ByteLogs(const Config& conf)
    : conf_(conf),
      path_(conf.nginx_proxy != 0 ? proxyLogFolder(conf) : mainLogFolder(conf)),
      stamps_(stateFile(kNote)) {}

ByteLogs::~ByteLogs() {
  const int whole = flush();
  if (stamp_ == 0) return;
  const AsUser panel(kPanelUser);
  const Descriptor state = openStateFolder();
  // What others noted and took back since this one began counts, not what it read then.
  stamps_.empty();
  if (!state || ::flock(state.get(), LOCK_EX) != 0 || !stamps_.readFile()) return;
  if (whole && !leftBehind_) stamps_.deleteParam(joined(kOpen, std::to_string(stamp_)).c_str());
  // Those of tallies that go on beside this one stay: theirs are as young as this one.
  for (long long i = stamps_.size() - 1; whole && sawEverything_ && !leftBehind_ && i >= 0; --i) {
    long long stamp = 0;
    const std::string_view name = stamps_.getNameAt(i);
    if (!name.starts_with(kOpen) || !isNumber(name.substr(kOpen.size()), stamp) || stamp > stamp_ - kSlack) continue;
    stamps_.deleteParamAt(i);
  }
  stamps_.shift_down_and_count();
  if (!stamps_.writeFile()) errorLog("Unable to write %s: %s", stamps_.getFilename(), stamps_.result.orEmpty());
}

int ByteLogs::begin(IsWantedHost isWanted, void* context, Current current) {
  const FailScope scope("byte_logs");
  if (!takeStamp()) return 0;
  const AsRoot root;
  folder_ = openGuardedFolder(path_.c_str());
  putAside(isWanted, context, current);
  graceEnd_ = std::time(nullptr) + kGrace;
  return 1;
}

/// A second that no tally before had, noted before any log is called by it.
int ByteLogs::takeStamp() {
  const AsUser panel(kPanelUser);
  const Descriptor state = openStateFolder();
  if (!state || ::flock(state.get(), LOCK_EX) != 0) {
    errorLog("Unable to open %s: %s", stateFile("").c_str(), std::strerror(errno));
    return 0;
  }
  struct stat what {};
  if (sys::lstat(stamps_.getFilename(), what) == 0 && !stamps_.readFile()) {
    errorLog("Unable to read %s: %s", stamps_.getFilename(), stamps_.result.orEmpty());
    return 0;
  }
  otherDied_ = stamps_.existsParamStartsWith(joined(kOpen).c_str()) != 0;
  long long last = 0;
  static_cast<void>(stamps_.getValue(kLast, &last));
  const long long now = std::time(nullptr);
  const bool isAhead = ageOf(last, now, kSlack).isAhead;
  if (isAhead) errorLog("%s: the time %lld has not come yet. Taking it for now.", stamps_.getFilename(), last);
  stamp_ = isAhead ? now : std::max(now, last + 1);
  stamps_.setParam(kLast, stamp_);
  stamps_.setParam(joined(kOpen, std::to_string(stamp_)).c_str(), 1);
  if (stamps_.writeFile()) return 1;
  errorLog("Unable to write %s: %s", stamps_.getFilename(), stamps_.result.orEmpty());
  stamp_ = 0;
  return 0;
}

void ByteLogs::putAside(IsWantedHost isWanted, void* context, Current current) {
  if (!folder_) return;
  FolderReader entries(folder_.get());
  std::vector<std::string> names;
  while (const dirent* entry = entries.next()) {
    if (entries.isFile(*entry) && std::strstr(entry->d_name, kEnding.data()) != nullptr)
      names.emplace_back(entry->d_name);
  }
  if (entries.failed()) errorLog("Unable to read %s: %s", path_.c_str(), std::strerror(errno));
  for (const std::string& name : names) meet(name.c_str(), isWanted, context, current);
}

void ByteLogs::meet(const char* name, IsWantedHost isWanted, void* context, Current current) {
  const std::string_view whole = name;
  const std::size_t ending = whole.rfind(kEnding);
  const std::string_view host = whole.substr(0, ending), log = whole.substr(0, ending + kEnding.size());
  if (!isWanted(context, host)) return;
  AsideLog found;
  if (readAsideName(whole, log, found)) {
    // Whoever was killed may not have told the servers, which go on writing there until they are.
    anyPutAside_ = true;
    aside_.emplace(host, found);
    return;
  }
  if (current == Current::stays || whole != log) return;
  found = {joined(log, ".", std::to_string(stamp_)), stamp_};
  if (sys::renameat(folder_.get(), name, folder_.get(), found.name.c_str()) != 0) {
    errorLog("Unable to move %s/%s to %s : %s", path_.c_str(), name, found.name.c_str(), std::strerror(errno));
    return;
  }
  anyPutAside_ = true;
  aside_.emplace(host, found);
}

AsideLogs ByteLogs::takeLogs(std::string_view host) {
  AsideLogs logs;
  const auto [first, last] = aside_.equal_range(host);
  for (auto log = first; log != last; ++log) logs.push_back(std::move(log->second));
  aside_.erase(first, last);
  return logs;
}

void ByteLogs::serversWereTold() {
  graceEnd_ = std::time(nullptr) + kGrace;
}

bool ByteLogs::waitForWriters() const {
  if (std::time(nullptr) >= graceEnd_) return false;
  sleepSafely(kBetweenLooks);
  return true;
}

int ByteLogs::flush() {
  if (billed_.empty()) return 1;
  const FailScope scope("byte_logs");
  const AsRoot root;
  const Descriptor users(sys::open(conf_.userdata, O_RDONLY | O_DIRECTORY));
  const std::vector<Billed> billed = std::move(billed_);
  billed_.clear();
  if (!users || sys::syncfs(users.get()) != 0) {
    errorLog("Unable to flush %s: %s", conf_.userdata.orEmpty(), std::strerror(errno));
    return 0;
  }
  int all = 1;
  for (const Billed& log : billed) {
    const bool isWebLog = log.folder == path_ && folder_;
    const std::string path = joined(log.folder, "/", log.name);
    const int gone = isWebLog ? sys::unlinkat(folder_.get(), log.name.c_str(), 0) : sys::unlink(path.c_str());
    if (gone == 0 || errno == ENOENT) continue;
    errorLog("Unable to delete bytes log: %s : %s", path.c_str(), std::strerror(errno));
    all = 0;
  }
  return all;
}

}  // namespace zvtaskq
