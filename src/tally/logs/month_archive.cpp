#include "tally/logs/month_archive.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>

#include "core/files/bounded_copy.h"
#include "core/process/child.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "tally/logs/tar_piece.h"

namespace zvtaskq {

namespace {

constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::string_view kProxyPrefix = "nginx-";
constexpr std::string_view kEnding = ".tar.gz";
constexpr std::string_view kGzipMagic = "\x1F\x8B";
/// Seconds for one log to be compressed.
constexpr int kCompressTime = 6 * 3600;
/// Bytes that a file may be longer than what it takes on the disk.
constexpr long long kLargestHole = 1 << 20;

/// An archive on its way. It begins with a mark of how much of it is whole: what a log adds stands behind that, and
/// counts when the mark is moved behind it. What a crash left there is cut off by the next. Everything here runs as the
/// user.
class Addition {
 public:
  Addition(const OpenedFolder& folder, const std::string& archive)
      : folder_(folder), archive_(archive), temporary_(archive + ".temp") {}

  int make(const std::string& member, const Descriptor& log) {
    const FailScope scope("month_archive");
    struct stat what {};
    if (sys::fstat(log.get(), what) != 0) return tell("fstat");
    const std::string header = tarHeader(member, what);
    if (header.empty()) return tell(member.c_str(), ENAMETOOLONG);
    if (open() && write(gzipStored(header)) && compress(log) && unchanged(log, what) &&
        write(gzipStored(tarPadding(what.st_size))) && settle(what)) {
      return 1;
    }
    takeBack();
    return 0;
  }

 private:
  /// Opens the archive behind what is whole of it, or a new one that is to take its place.
  int open() {
    Descriptor old(sys::openat(folder_.folder.get(), archive_.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK));
    if (!old) return errno == ENOENT ? begin() : tell("open");
    struct stat what {};
    if (sys::fstat(old.get(), what) != 0) return tell("fstat");
    // A file of holes would keep a copy busy for ever.
    if (!S_ISREG(what.st_mode) || what.st_size > what.st_blocks * 512 + kLargestHole) return tell("open", EINVAL);
    char beginning[kGzipMarkSize];
    const ssize_t got = sys::read(old.get(), beginning, sizeof beginning);
    if (got < 0) return tell("read");
    const std::string_view head(beginning, static_cast<std::size_t>(got));
    if (!head.empty() && !head.starts_with(kGzipMagic)) return tell("not a compressed file", EINVAL);
    const std::optional<long long> mark = readGzipMark(head);
    const bool isMarked = mark && *mark >= static_cast<long long>(kGzipMarkSize) && *mark <= what.st_size;
    before_ = what.st_mtim;
    // A second name of it is a copy that its owner keeps as it is.
    if (!isMarked || what.st_nlink > 1) return begin() && copy(old, isMarked ? *mark : what.st_size);
    file_ = std::move(old);
    whole_ = *mark;
    if (whole_ < what.st_size && sys::ftruncate(file_.get(), whole_) != 0) return tell("ftruncate");
    return ::lseek(file_.get(), whole_, SEEK_SET) == whole_ ? 1 : tell("lseek");
  }

  int begin() {
    const int folder = folder_.folder.get();
    if (sys::unlinkat(folder, temporary_.c_str(), 0) != 0 && errno != ENOENT) return tell("unlink");
    file_ = Descriptor(sys::openat(folder, temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    return file_ ? write(gzipMark(0)) : tell("open");
  }

  /// The account may add to its archive as fast as it is read: what was there when it was looked at counts.
  int copy(const Descriptor& old, long long size) {
    return BoundedCopy(old.get(), file_.get()).upTo(size) ? 1 : tell("copy");
  }

  int write(std::string_view text) { return sys::writeAll(file_.get(), text) == text.size() ? 1 : tell("write"); }

  /// The program moves bytes between two open files, and nothing else: no process of the account can stop it.
  int compress(const Descriptor& log) {
    if (::lseek(log.get(), 0, SEEK_SET) != 0) return tell("lseek");
    const Ids panel = idsOf(kPanelUser);
    if (panel.user == kUnknownId || panel.group == kUnknownId) return tell("gzip", ESRCH);
    ChildPlan plan = ChildPlan::program("/bin/gzip", {"-c"});
    plan.identity = panel;
    plan.inputDescriptor = log.get();
    plan.outputDescriptor = file_.get();
    plan.errors = ChildPlan::Stream::collect;
    plan.timeLimit = kCompressTime;
    const ChildResult gzip = runChild(plan);
    if (gzip.status == 0) return 1;
    errorLog("Tally::rotateLogs: %s: gzip ended with %d: %s", path().c_str(), gzip.status, gzip.output.c_str());
    return 0;
  }

  /// The header tells the size, so nothing may have come meanwhile.
  int unchanged(const Descriptor& log, const struct stat& before) {
    struct stat now {};
    if (sys::fstat(log.get(), now) == 0 && now.st_size == before.st_size) return 1;
    return tell("the log is still being written", EBUSY);
  }

  /// Makes what was added count, once it is safe on the disk.
  int settle(const struct stat& log) {
    const off_t end = ::lseek(file_.get(), 0, SEEK_CUR);
    if (end < 0) return tell("lseek");
    if (whole_ > 0 && sys::fsync(file_.get()) != 0) return tell("fsync");
    if (!moveMark(end)) return tell("write");
    keepTime(log);
    if (sys::fsync(file_.get()) != 0) return tell("fsync");
    if (whole_ > 0) return 1;
    const int folder = folder_.folder.get();
    if (sys::renameat(folder, temporary_.c_str(), folder, archive_.c_str()) != 0) return tell("rename");
    static_cast<void>(sys::fsync(folder));
    return 1;
  }

  /// An archive is as old as the newest of its lines: by that the oldest are chosen to go.
  void keepTime(const struct stat& log) {
    const auto isLater = [](const timespec& a, const timespec& b) {
      return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
    };
    static_cast<void>(sys::setModified(file_.get(), isLater(before_, log.st_mtim) ? before_ : log.st_mtim));
  }

  bool moveMark(long long to) {
    const std::string number = gzipMarkNumber(to);
    return ::lseek(file_.get(), kGzipMarkPlace, SEEK_SET) == static_cast<off_t>(kGzipMarkPlace) &&
           sys::writeAll(file_.get(), number) == number.size();
  }

  void takeBack() {
    if (!file_) return;
    if (whole_ == 0) {
      static_cast<void>(sys::unlinkat(folder_.folder.get(), temporary_.c_str(), 0));
      return;
    }
    // What cannot be taken back is cut off the next time, by the mark. A mark of which half was written is none: all
    // that is there then counts.
    static_cast<void>(moveMark(whole_));
    static_cast<void>(sys::ftruncate(file_.get(), whole_));
    static_cast<void>(sys::setModified(file_.get(), before_));
  }

  int tell(const char* step, int error = errno) const {
    errorLog("Tally::rotateLogs: %s: %s: %s", path().c_str(), step, std::strerror(error));
    return 0;
  }
  std::string path() const { return joined(folder_.path, "/", archive_); }

  const OpenedFolder& folder_;
  const std::string& archive_;
  std::string temporary_;
  /// The archive itself, or the one that is to take its place.
  Descriptor file_;
  /// What of the archive itself is whole; 0 for one that is to take its place.
  long long whole_ = 0;
  timespec before_{};
};

}  // namespace

std::string monthArchiveName(long long time, bool ofProxy) {
  const std::time_t when = static_cast<std::time_t>(time);
  std::tm day{};
  ::localtime_r(&when, &day);
  return joined(ofProxy ? kProxyPrefix : "", kMonths[day.tm_mon], "-", std::to_string(day.tm_year + 1900), kEnding);
}

bool isMonthArchiveName(std::string_view name) {
  if (name.starts_with(kProxyPrefix)) name.remove_prefix(kProxyPrefix.size());
  if (!name.ends_with(kEnding)) return false;
  name.remove_suffix(kEnding.size());
  if (name.size() != 8 || name[3] != '-' || name.find_first_not_of("0123456789", 4) != std::string_view::npos) {
    return false;
  }
  return std::find(std::begin(kMonths), std::end(kMonths), name.substr(0, 3)) != std::end(kMonths);
}

int addToArchive(const char* user, const OpenedFolder& folder, const std::string& archive, const std::string& member,
                 const Descriptor& log) {
  const AsUser account(user);
  if (!account.taken()) return 0;
  return Addition(folder, archive).make(member, log);
}

}  // namespace zvtaskq
