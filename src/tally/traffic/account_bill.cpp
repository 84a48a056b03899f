#include "tally/traffic/account_bill.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "core/files/append_file.h"
#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/panel/panel_paths.h"
#include "core/panel/state_folder.h"
#include "core/read/line_reader.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"
#include "tally/traffic/tally_file.h"

namespace zvtaskq {

namespace {

constexpr const char* kNotes = "billing";
constexpr const char* kTallyFile = "bandwidth.tally";
/// More names of one log than killed tallies leave.
constexpr int kMostNames = 10000;
/// The stamp of a place that counts without a line.
constexpr long long kForGood = 0;

/// "<stamp>:<place>", the first of a note's value, which moves behind it. False at its end.
bool nextMark(std::string_view& note, long long& stamp, long long& place) {
  const char* const end = note.data() + note.size();
  const auto [colon, error] = std::from_chars(note.data(), end, stamp);
  if (error != std::errc() || colon == end || *colon != ':') return false;
  const auto [behind, wrong] = std::from_chars(colon + 1, end, place);
  if (wrong != std::errc()) return false;
  note = behind == end ? std::string_view() : std::string_view(behind + 1, static_cast<std::size_t>(end - behind - 1));
  return true;
}

std::string markText(long long stamp, long long place) {
  return joined(std::to_string(stamp), ":", std::to_string(place));
}

std::string numberOf(const struct stat& what) {
  return std::to_string(what.st_ino);
}

}  // namespace

AccountBill::AccountBill(ByteLogs& logs, const char* account)
    : logs_(logs),
      account_(account),
      path_(accountFile(account, nullptr)),
      note_(stateFile(joined(kNotes, "/", account))) {
  const AsUser panel(kPanelUser);
  struct stat what {};
  if (sys::lstat(note_.getFilename(), what) != 0) return;
  if (!note_.readFile()) errorLog("Unable to read %s: %s", note_.getFilename(), note_.result.orEmpty());
}

AccountBill::~AccountBill() {
  if (hasOwnAside_) logs_.leftBehind();
}

// --- Reading ---------------------------------------------------------------------------------------------------

ByteSums AccountBill::host(const std::string& host) {
  const FailScope scope("byte_logs");
  ByteSums sums;
  if (!logs_.folder()) return sums;
  const AsRoot root;
  const Place place{logs_.folder(), logs_.path(), joined(host, ".bytes")};
  AsideLogs logs = logs_.takeLogs(host);
  // What the servers write since the logs were put aside is for the next tally.
  const auto isOfNow = [&](const AsideLog& log) { return log.stamp == logs_.stamp(); };
  if (std::none_of(logs.begin(), logs.end(), isOfNow)) addCurrent(place, logs);
  readAll(place, std::move(logs), [&](LineReader& reader, long long most) {
    for (std::string_view lines; reader.consumed() < most && reader.nextBlock(lines);) addByteLines(lines, sums);
  });
  return sums;
}

double AccountBill::noted(const char* file) {
  return sumNoted(file, &AccountBill::addCurrent);
}

double AccountBill::notedUnderLock(const char* file) {
  return sumNoted(file, &AccountBill::addUnderLock);
}

double AccountBill::sumNoted(const char* file, PutAside putAside) {
  const FailScope scope("byte_logs");
  const AsRoot root;
  double sum = 0;
  openOwnFolder();
  if (!folder_) return 0;
  const Place place{folder_, path_, file};
  AsideLogs logs = inOwnFolder(file);
  (this->*putAside)(place, logs);
  hasOwnAside_ = hasOwnAside_ || !logs.empty();
  readAll(place, std::move(logs), [&](LineReader& reader, long long most) { sum += sumTallyLines(reader, most); });
  return sum;
}

void AccountBill::addUnderLock(const Place& place, AsideLogs& logs) {
  struct stat what {};
  if (sys::lstatAt(place.folder.get(), place.log.c_str(), what) != 0) return;
  FileLock lock;
  const std::string path = joined(place.path, "/", place.log);
  if (lock.take(path.c_str(), kLockMaximumAge, "AccountBill", nullptr)) {
    addCurrent(place, logs);
  } else {
    errorLog("Can't get lock on %s for tally of %s", path.c_str(), account_.c_str());
  }
}

void AccountBill::openOwnFolder() {
  if (!folder_) folder_ = Descriptor(sys::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
}

/// What killed tallies left of a log of the account's own folder: looked for only when there was one.
AsideLogs AccountBill::inOwnFolder(const char* file) {
  AsideLogs logs;
  if (!logs_.otherDied()) return logs;
  FolderReader entries(folder_.get());
  AsideLog log;
  while (const dirent* entry = entries.next()) {
    if (readAsideName(entry->d_name, file, log)) logs.push_back(log);
  }
  return logs;
}

/// Puts aside the log itself, when it is there.
void AccountBill::addCurrent(const Place& place, AsideLogs& logs) {
  struct stat what {};
  if (sys::lstatAt(place.folder.get(), place.log.c_str(), what) != 0) return;
  if (!S_ISREG(what.st_mode)) {
    errorLog("%s/%s of account %s is no plain file: its traffic is not counted", place.path.c_str(), place.log.c_str(),
             account_.c_str());
    return;
  }
  AsideLog log{place.log, 0};
  if (rename(place, log)) logs.push_back(log);
}

/// Gives a log the tally's stamp, under a name that is free.
bool AccountBill::rename(const Place& place, AsideLog& log) {
  const std::string stem = joined(place.log, ".", std::to_string(logs_.stamp()));
  std::string name = stem;
  struct stat what {};
  for (int i = 1; sys::lstatAt(place.folder.get(), name.c_str(), what) == 0 && i < kMostNames; ++i) {
    name = joined(stem, ".", std::to_string(i));
  }
  if (sys::renameat(place.folder.get(), log.name.c_str(), place.folder.get(), name.c_str()) == 0) {
    log = {name, logs_.stamp()};
    return true;
  }
  if (errno != ENOENT) {
    errorLog("Unable to move %s/%s to %s : %s", place.path.c_str(), log.name.c_str(), name.c_str(),
             std::strerror(errno));
  }
  return false;
}

/// Whether something of a killed tally's log is still to be billed; it has this one's stamp then.
bool AccountBill::takeOver(const Place& place, AsideLog& log) {
  struct stat what {};
  if (sys::lstatAt(place.folder.get(), log.name.c_str(), what) != 0) return false;
  if (isBilled(log.stamp) && !note_.existsParam(numberOf(what).c_str())) {
    done_.emplace_back(place.path, log.name);
    return false;
  }
  if (!isBilled(log.stamp)) takenOver_.insert(log.stamp);
  return rename(place, log);
}

template <class Sum>
void AccountBill::readAll(const Place& place, AsideLogs logs, Sum sum) {
  for (AsideLog& log : logs) {
    if (log.stamp != logs_.stamp() && !takeOver(place, log)) continue;
    const Descriptor file(sys::openat(place.folder.get(), log.name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!file) continue;
    const bool held = isHeld(file.get());
    struct stat what {};
    if (sys::fstat(file.get(), what) != 0 || !S_ISREG(what.st_mode)) continue;
    const long long mark = markOf(what);
    if (mark > 0 && ::lseek(file.get(), mark, SEEK_SET) != mark) continue;
    LineReader reader(file.get(), LongLines::chop);
    sum(reader, what.st_size - mark);
    if (reader.failed()) {
      errorLog("Unable to read %s/%s: %s", place.path.c_str(), log.name.c_str(), std::strerror(errno));
    }
    if (held || reader.failed()) {
      keepMark(what, mark + reader.consumed());
      staysAside_ = true;
    } else {
      forgetMark(what);
      done_.emplace_back(place.path, log.name);
    }
  }
}

/// Whether somebody still writes to the log, who has had his time to let go of it. Where that cannot be told, whether
/// it has grown since it was looked at last.
bool AccountBill::isHeld(int fd) {
  struct stat before {};
  for (;;) {
    const ReadLease lease(fd);
    if (lease.granted()) return false;
    if (before.st_ino == 0 && (sys::fstat(fd, before) != 0 || !S_ISREG(before.st_mode))) return false;
    if (logs_.waitForWriters()) continue;
    const long long mark = markOf(before);
    return lease.refused() || mark == 0 || before.st_size > mark;
  }
}

// --- What is billed --------------------------------------------------------------------------------------------

bool AccountBill::isBilled(long long stamp) {
  if (stamp == kForGood) return true;
  const auto known = lines_.find(stamp);
  if (known != lines_.end()) return known->second;
  const std::string wanted = joined("=type=tally&time=", std::to_string(stamp), "&");
  const Descriptor file = openRegularFile(joined(path_, "/", kTallyFile).c_str());
  bool found = false;
  if (file) {
    LineReader reader(file.get(), LongLines::chop);
    for (std::string_view line; !found && reader.next(line);) found = line.find(wanted) != std::string_view::npos;
  }
  return lines_[stamp] = found;
}

long long AccountBill::markOf(const struct stat& what) {
  const long long billed = billedPlace(note_.getValue(numberOf(what).c_str()));
  return billed > what.st_size ? 0 : billed;
}

/// The last place of a note's value whose line is there.
long long AccountBill::billedPlace(const char* value) {
  std::string_view marks = value == nullptr ? std::string_view() : std::string_view(value);
  long long stamp = 0, place = 0, billed = 0;
  while (nextMark(marks, stamp, place)) {
    if (isBilled(stamp)) billed = place;
  }
  return billed;
}

/// Until the line is there the place before it counts.
void AccountBill::keepMark(const struct stat& what, long long place) {
  const long long before = markOf(what);
  const std::string now = markText(logs_.stamp(), place);
  note_.setParam(numberOf(what).c_str(), (before > 0 ? joined(markText(kForGood, before), ",", now) : now).c_str());
  noteChanged_ = true;
}

int AccountBill::settle(const std::vector<std::string>& hosts) {
  const AsRoot root;
  const auto see = [&](const Place& place, AsideLogs found) {
    for (AsideLog& log : found) {
      if (log.stamp != logs_.stamp()) static_cast<void>(takeOver(place, log));
    }
  };
  for (const std::string& host : hosts) {
    see({logs_.folder(), logs_.path(), joined(host, ".bytes")}, logs_.takeLogs(host));
  }
  openOwnFolder();
  for (const char* file : {"ZorvaneUsage.bytes", "ftp.bytes"}) {
    if (folder_) see({folder_, path_, file}, inOwnFolder(file));
  }
  for (long long i = 0; i < note_.size(); ++i) {
    const std::string number = note_.getNameAt(i);
    note_.setParam(number.c_str(), markText(kForGood, billedPlace(note_.getValueAt(i))).c_str());
  }
  if (note_.size() > 0 && !writeNote()) return 0;
  for (const auto& [folder, name] : done_) logs_.billed(folder, name);
  done_.clear();
  return 1;
}

void AccountBill::forgetMark(const struct stat& what) {
  if (note_.existsParam(numberOf(what).c_str())) forgotten_.push_back(numberOf(what));
}

int AccountBill::writeNote() {
  const AsUser panel(kPanelUser);
  noteChanged_ = false;
  if (openStateFolder(kNotes) && (note_.size() == 0 ? note_.removeFile() : note_.writeFile())) return 1;
  errorLog("Unable to write %s: %s", note_.getFilename(), note_.result.orEmpty());
  return 0;
}

/// The places in logs that are billed to their end are of no use when the line is there for good, and must be gone
/// before another file has their number.
int AccountBill::dropForgotten(const std::string& tallyFile) {
  if (forgotten_.empty()) return 1;
  const Descriptor file = openRegularFile(tallyFile.c_str());
  if (!file || sys::fsync(file.get()) != 0) {
    errorLog("Unable to flush %s: %s", tallyFile.c_str(), std::strerror(errno));
    return 0;
  }
  for (const std::string& number : forgotten_) note_.deleteParam(number.c_str());
  forgotten_.clear();
  return writeNote();
}

int AccountBill::enter(const TrafficParts& parts) {
  const FailScope scope("byte_logs");
  const AsRoot root;
  char line[512];
  const int length = std::snprintf(
      line, sizeof line, "%f=type=tally&time=%d&ftp_bw_total=%f&http_bw_total=%f&http_ul_total=%f&zv_bw_total=%f\n",
      parts.total(), static_cast<int>(logs_.stamp()), parts.ftp, parts.down, parts.up, parts.panel);
  const std::string path = joined(path_, "/", kTallyFile);
  const bool fits = length > 0 && static_cast<std::size_t>(length) < sizeof line;
  if (!fits || (noteChanged_ && !writeNote()) || appendLines(path.c_str(), line, "AccountBill") != Appended::done) {
    errorLog("Unable to open %s for appending", path.c_str());
    return 0;
  }
  hasOwnAside_ = staysAside_;
  // Without that the logs stay, and their places with them.
  if (!dropForgotten(path)) return 1;
  for (const auto& [folder, name] : done_) logs_.billed(folder, name);
  done_.clear();
  return 1;
}

}  // namespace zvtaskq
