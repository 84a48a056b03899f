#include "tally/logs/month_archive.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <iterator>
#include <vector>

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
constexpr std::size_t kBlock = 256UL * 1024;
/// Seconds for one log to be compressed.
constexpr int kCompressTime = 6 * 3600;
/// Bytes that a file may be longer than what it takes on the disk.
constexpr long long kLargestHole = 1 << 20;

/// One archive on its way. Everything here runs as the user.
class Addition {
 public:
  Addition(const OpenedFolder& folder, const std::string& archive)
      : folder_(folder), archive_(archive), temporary_(archive + ".temp") {}

  int make(const std::string& member, const Descriptor& log, Ids user) {
    const FailScope scope("month_archive");
    struct stat what {};
    if (sys::fstat(log.get(), what) != 0) return tell("fstat");
    const std::string header = tarHeader(member, what);
    if (header.empty()) return tell(member.c_str(), ENAMETOOLONG);
    if (begin() && copyOld() && write(gzipStored(header)) && compress(log, user) && unchanged(log, what) &&
        write(gzipStored(tarPadding(what.st_size))) && putInPlace()) {
      return 1;
    }
    if (temporaryFile_) static_cast<void>(sys::unlinkat(folder_.folder.get(), temporary_.c_str(), 0));
    return 0;
  }

 private:
  int begin() {
    const int folder = folder_.folder.get();
    if (sys::unlinkat(folder, temporary_.c_str(), 0) != 0 && errno != ENOENT) return tell("unlink");
    temporaryFile_ =
        Descriptor(sys::openat(folder, temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    return temporaryFile_ ? 1 : tell("open");
  }

  int copyOld() {
    const Descriptor old(sys::openat(folder_.folder.get(), archive_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!old) return errno == ENOENT ? 1 : tell("open");
    struct stat what {};
    if (sys::fstat(old.get(), what) != 0) return tell("fstat");
    // A file of holes would keep the copy busy for ever.
    if (!S_ISREG(what.st_mode) || what.st_size > what.st_blocks * 512 + kLargestHole) return tell("open", EINVAL);
    std::vector<char> block(kBlock);
    for (bool first = true;; first = false) {
      const ssize_t got = sys::read(old.get(), block.data(), block.size());
      if (got < 0) return tell("read");
      if (got == 0) return 1;
      const std::string_view piece(block.data(), static_cast<std::size_t>(got));
      if (first && !piece.starts_with(kGzipMagic)) return tell("not a compressed file", EINVAL);
      if (!write(piece)) return 0;
    }
  }

  int write(std::string_view text) {
    return sys::writeAll(temporaryFile_.get(), text) == text.size() ? 1 : tell("write");
  }

  int compress(const Descriptor& log, Ids user) {
    if (::lseek(log.get(), 0, SEEK_SET) != 0) return tell("lseek");
    ChildPlan plan = ChildPlan::program("/bin/gzip", {"-c"});
    plan.identity = user;
    plan.inputDescriptor = log.get();
    plan.outputDescriptor = temporaryFile_.get();
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

  int putInPlace() {
    const int folder = folder_.folder.get();
    if (sys::fsync(temporaryFile_.get()) != 0) return tell("fsync");
    if (sys::renameat(folder, temporary_.c_str(), folder, archive_.c_str()) != 0) return tell("rename");
    static_cast<void>(sys::fsync(folder));
    return 1;
  }

  int tell(const char* step, int error = errno) const {
    errorLog("Tally::rotateLogs: %s: %s: %s", path().c_str(), step, std::strerror(error));
    return 0;
  }
  std::string path() const { return joined(folder_.path, "/", archive_); }

  const OpenedFolder& folder_;
  const std::string& archive_;
  std::string temporary_;
  Descriptor temporaryFile_;
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
  return Addition(folder, archive).make(member, log, idsOf(user));
}

}  // namespace zvtaskq
