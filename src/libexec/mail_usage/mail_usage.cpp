#include "libexec/mail_usage/mail_usage.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/files/append_file.h"
#include "core/files/lock_file.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/state_folder.h"
#include "core/read/log_mark.h"
#include "core/record/list_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/tree/folder_reader.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kState = "mail_usage";
constexpr const char* kTallyFile = "bandwidth.tally";
constexpr const char* kCaller = "mail_usage";
constexpr std::string_view kFresh = ".bytes", kAside = ".bytes.billing";
/// The pairs of the note, with the account's name behind: how far its file is read; and of what is being entered the
/// end, and the size of the tally file before.
constexpr std::string_view kMark = "mark_", kTo = "to_", kSize = "size_";
/// Bytes that are entered at once, and of one account by one run: millions of e-mails, but no hole without end.
constexpr long long kMostAtOnce = 1LL << 20, kMostARun = 1LL << 30;
/// Bytes that others may have appended to a tally file while nobody looked.
constexpr long long kMostAdded = 64LL << 20;
constexpr auto kWritersTime = std::chrono::seconds(5);
constexpr int kLookEvery = 50;

std::string key(std::string_view kind, const std::string& account) {
  return joined(kind, account);
}

/// The open file is a plain one that has no other name, and `size` bytes long.
bool isPlain(const Descriptor& file, long long& size) {
  struct stat what {};
  if (!file || sys::fstat(file.get(), what) != 0 || !S_ISREG(what.st_mode) || what.st_nlink != 1) return false;
  size = what.st_size;
  return true;
}

long long sizeOf(const std::string& path) {
  struct stat what {};
  return sys::lstat(path.c_str(), what) == 0 ? what.st_size : 0;
}

}  // namespace

MailUsage::MailUsage(const Config& conf)
    : conf_(conf), path_(joined(conf.emailvirtual, "/usage")), note_(stateFile(joined(kState, "/note"))) {
  note_.useLock = false;
}

int MailUsage::enter() {
  if (conf_.emailvirtual.isEmpty()) return 1;
  const AsRoot root;
  const FailScope scope(kState);
  if (!openUsage()) return errno == ENOENT ? 1 : tell(joined("Unable to open ", path_, ": ", std::strerror(errno)));
  if (!open() || !settleAll()) return 0;
  writersEnd_ = Clock::now() + kWritersTime;
  listFiles();
  // What an earlier run left comes first: its name must be free for what has been written since.
  if (!enterAside()) return 0;
  putAside();
  return enterAside() ? outcome_ : 0;
}

int MailUsage::openUsage() {
  // The top is the administrator's to name, and may be a link.
  const Descriptor top(sys::open(conf_.emailvirtual, O_PATH | O_DIRECTORY));
  if (top) folder_ = openBeneath(top.get(), "usage", O_RDONLY | O_DIRECTORY);
  return folder_ ? 1 : 0;
}

int MailUsage::open() {
  state_ = openStateFolder(kState);
  if (!state_ || sys::flockNow(state_.get(), LOCK_EX) != 0) {
    return tell(joined("Unable to open ", stateFile(kState), ": ", std::strerror(errno)));
  }
  const bool isThere = pathExists(note_.getFilename()) || errno != ENOENT;
  return !isThere || note_.readFile() ? 1 : tell(joined("Unable to read ", note_.getFilename(), ": ", note_.result));
}

int MailUsage::writeNote() {
  if (note_.writeFile()) return 1;
  return tell(joined("Unable to write ", note_.getFilename(), ": ", note_.result));
}

/// What has been appended must not be lost once the note says that it is there.
int MailUsage::makeSafe() {
  const Descriptor users(sys::open(conf_.userdata, O_RDONLY | O_DIRECTORY));
  if (users && sys::syncfs(users.get()) == 0) return writeNote();
  return tell(joined("Unable to flush ", conf_.userdata, ": ", std::strerror(errno)));
}

/// Finishes what a killed run was at, and forgets files that it deleted.
int MailUsage::settleAll() {
  std::set<std::string> names;
  for (long long i = 0; i < note_.size(); ++i) {
    const std::string_view name = note_.getNameAt(i);
    for (const std::string_view kind : {kMark, kTo}) {
      if (name.starts_with(kind)) names.emplace(name.substr(kind.size()));
    }
  }
  for (const std::string& name : names) settle(name);
  return names.empty() ? 1 : makeSafe();
}

void MailUsage::settle(const std::string& name) {
  long long to = 0, size = 0;
  const bool wasEntering =
      note_.getValue(key(kTo, name).c_str(), &to) && note_.getValue(key(kSize, name).c_str(), &size);
  for (const std::string_view kind : {kTo, kSize}) note_.deleteParam(key(kind, name).c_str());
  const Descriptor file = openAside(name);
  if (!file) {
    note_.deleteParam(key(kMark, name).c_str());
    return;
  }
  const long long from = placeOf(name, file.get());
  if (!wasEntering || to <= from || to - from > kMostAtOnce) return;
  const std::string text = textFrom(file.get(), from, to);
  const MailLines block = takeMailLines(text, true);
  const Written found = lookIn(accountFile(name.c_str(), kTallyFile), size, block.lines);
  const std::size_t done =
      found.whole == block.lines.size() ? text.size() : takeMailLines(text, true, found.whole).consumed;
  setPlace(name, file.get(), from + static_cast<long long>(done));
}

/// How much of the block the tally file has. The beginning of a line that it has of it would count as an amount of its
/// own: it is made one that does not.
Written MailUsage::lookIn(const std::string& path, long long from, std::string_view block) const {
  FileLock lock;
  static_cast<void>(lock.take(path.c_str(), kLockMaximumAge, kCaller, nullptr));
  const Descriptor tally(sys::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW));
  long long size = 0;
  if (!isPlain(tally, size) || size <= from) return {};
  const std::string added = textFrom(tally.get(), from, std::min(size, from + kMostAdded));
  const Written found = findWritten(added, block);
  if (found.torn == 0) return found;
  const off_t place = static_cast<off_t>(from) + static_cast<off_t>(found.tornAt);
  if (::lseek(tally.get(), place, SEEK_SET) != place ||
      sys::writeAll(tally.get(), std::string(found.torn, '-')) != found.torn) {
    errorLog("Unable to write %s: %s", path.c_str(), std::strerror(errno));
  }
  return found;
}

/// Finds the files of the accounts there are. The rest is only counted: there may be any number of them.
void MailUsage::listFiles() {
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) tell(joined("Unable to read ", conf_.userdata, ": ", std::strerror(errno)));
  FolderReader files(folder_.get());
  long long strays = 0;
  while (const dirent* entry = files ? files.next() : nullptr) {
    const std::string_view name = entry->d_name;
    const bool isAside = name.ends_with(kAside);
    if (!isAside && !name.ends_with(kFresh)) continue;
    const std::string account(name.substr(0, name.size() - (isAside ? kAside : kFresh).size()));
    if (!accounts.existElement(account.c_str())) {
      ++strays;
    } else if (isAside) {
      aside_.push_back({account});
    } else {
      fresh_.insert(account);
    }
  }
  if (!files || files.failed()) tell(joined("Unable to read ", path_, ": ", std::strerror(errno)));
  if (strays > 0) errorLog("%s: %lld files belong to no account", path_.c_str(), strays);
}

void MailUsage::putAside() {
  aside_.clear();
  for (const std::string& name : fresh_) {
    const std::string fresh = joined(name, kFresh), aside = joined(name, kAside);
    struct stat what {};
    // What could not be finished of the one before keeps its name.
    if (sys::lstatAt(folder_.get(), aside.c_str(), what) == 0) continue;
    if (sys::lstatAt(folder_.get(), fresh.c_str(), what) != 0) continue;
    if (!S_ISREG(what.st_mode) || what.st_nlink != 1) {
      refuse(name, fresh);
    } else if (sys::renameat(folder_.get(), fresh.c_str(), folder_.get(), aside.c_str()) != 0) {
      tell(joined("Unable to rename ", path_, "/", fresh, ": ", std::strerror(errno)));
    } else {
      aside_.push_back({name});
    }
  }
}

/// 0 when it has to stop here.
int MailUsage::enterAside() {
  if (aside_.empty()) return 1;
  waitForWriters();
  int entered = 1;
  while (entered > 0) entered = enterRound();
  if (entered < 0) return 0;
  for (Account& account : aside_) deleteDone(account);
  return writeNote();
}

void MailUsage::waitForWriters() {
  for (Account& account : aside_) account.isHeld = true;
  for (;;) {
    const bool isOver = Clock::now() >= writersEnd_;
    bool anyHeld = false;
    for (Account& account : aside_) {
      account.isHeld = account.isHeld && isHeld(account);
      anyHeld = anyHeld || account.isHeld;
    }
    if (!anyHeld || isOver) return;
    sleepSafely(kLookEvery);
  }
}

/// Whether somebody may still write to the file. Where the file system cannot tell, they get all of their time.
bool MailUsage::isHeld(const Account& account) const {
  const Descriptor file = openAside(account.name);
  if (!file) return false;
  const ReadLease lease(file.get());
  return lease.refused() || (!lease.granted() && Clock::now() < writersEnd_);
}

/// Enters a block of each account that has one: how many, or -1 when it has to stop here.
int MailUsage::enterRound() {
  std::vector<Account*> planned;
  for (Account& account : aside_) {
    if (!account.isDone && plan(account)) planned.push_back(&account);
  }
  if (planned.empty()) return 0;
  if (!writeNote()) return -1;
  for (Account* account : planned) append(*account);
  return makeSafe() ? static_cast<int>(planned.size()) : -1;
}

/// Notes what is to be entered next of the account's file. False when there is nothing.
bool MailUsage::plan(Account& account) {
  const Descriptor file = openAside(account.name);
  if (!file && errno != ENOENT) refuse(account.name, joined(account.name, kAside));
  long long size = 0;
  account.isDone = !isPlain(file, size) || account.read >= kMostARun;
  if (account.isDone) return false;
  account.from = placeOf(account.name, file.get());
  const std::string text = textFrom(file.get(), account.from, std::min(size, account.from + kMostAtOnce));
  const long long end = account.from + static_cast<long long>(text.size());
  const std::size_t lastFeed = text.rfind('\n');
  account.to = account.from + static_cast<long long>(lastFeed == std::string::npos ? 0 : lastFeed + 1);
  // No writer will end the last line any more; and one that fills a block is no line.
  const bool isWhole = (!account.isHeld && end == size) || (account.to == account.from && end < size);
  if (isWhole) account.to = end;
  account.isDone = account.to == account.from;
  if (account.isDone) return false;
  account.read += account.to - account.from;
  note_.setParam(key(kTo, account.name).c_str(), account.to);
  note_.setParam(key(kSize, account.name).c_str(), sizeOf(accountFile(account.name.c_str(), kTallyFile)));
  return true;
}

/// After a failure the note goes on to say that the lines may be there: the next run looks.
void MailUsage::append(Account& account) {
  const Descriptor file = openAside(account.name);
  account.isDone = !file;
  if (account.isDone) return;
  const MailLines block = takeMailLines(textFrom(file.get(), account.from, account.to), true);
  if (block.refused > 0) {
    errorLog("%s/%s%s of account %s: %lld lines are of no e-mail: not entered", path_.c_str(), account.name.c_str(),
             kAside.data(), account.name.c_str(), block.refused);
  }
  const std::string tally = accountFile(account.name.c_str(), kTallyFile);
  account.isDone = !block.lines.empty() && appendLines(tally.c_str(), block.lines, kCaller) != Appended::done;
  if (account.isDone) {
    tell(joined("Unable to open ", tally, " for appending"));
    return;
  }
  for (const std::string_view kind : {kTo, kSize}) note_.deleteParam(key(kind, account.name).c_str());
  setPlace(account.name, file.get(), account.to);
}

void MailUsage::deleteDone(Account& account) {
  const Descriptor file = openAside(account.name);
  if (!file || note_.existsParam(key(kTo, account.name).c_str())) return;
  const ReadLease lease(file.get());
  long long size = 0;
  account.isHeld =
      account.isHeld || lease.refused() || !isPlain(file, size) || placeOf(account.name, file.get()) < size;
  if (account.isHeld) return;
  if (sys::unlinkat(folder_.get(), joined(account.name, kAside).c_str(), 0) == 0) {
    note_.deleteParam(key(kMark, account.name).c_str());
  } else {
    account.isHeld = true;
    tell(joined("Unable to delete ", path_, "/", account.name, kAside, ": ", std::strerror(errno)));
  }
}

/// Not open when it is no plain file with one name.
Descriptor MailUsage::openAside(const std::string& name) const {
  Descriptor file(sys::openat(folder_.get(), joined(name, kAside).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  long long size = 0;
  if (!file || isPlain(file, size)) return file;
  file.reset();
  errno = EINVAL;
  return file;
}

/// What there is of the file between the two places.
std::string MailUsage::textFrom(int file, long long from, long long to) const {
  std::string text(static_cast<std::size_t>(std::max(to - from, 0LL)), '\0');
  std::size_t had = 0;
  ssize_t got = 1;
  for (; had < text.size() && got > 0; had += static_cast<std::size_t>(std::max<ssize_t>(got, 0))) {
    got = ::pread(file, text.data() + had, text.size() - had, from + static_cast<off_t>(had));
  }
  text.resize(had);
  return text;
}

long long MailUsage::placeOf(const std::string& name, int file) const {
  const LogMark mark = LogMark::fromText(note_.getValue(key(kMark, name).c_str()));
  return mark.fits(file) ? mark.offset : 0;
}

void MailUsage::setPlace(const std::string& name, int file, long long place) {
  note_.setParam(key(kMark, name).c_str(), LogMark::at(file, place).text().c_str());
}

void MailUsage::refuse(const std::string& name, const std::string& file) {
  refusalLog(10, "%s/%s of account %s is no plain file: not entered", path_.c_str(), file.c_str(), name.c_str());
  outcome_ = 0;
}

/// A failure that the others go on after.
int MailUsage::tell(const std::string& what) {
  errorLog("%s", what.c_str());
  outcome_ = 0;
  return 0;
}

}  // namespace zvtaskq
