#include "tally/bruteforce/records/entries.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>

#include "core/files/lock_file.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/post_string.h"
#include "tally/bruteforce/lines/data_paths.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kBlock = std::size_t{256} * 1024;
/// Room for an entry's key and numbers, and the names of its pairs.
constexpr std::size_t kFixedRoom = 512;
/// The last number of four digits, and the first whose key is the beginning of others.
constexpr long long kLastShort = 9999;
constexpr long long kFirstParent = 1000;
constexpr std::size_t kKeyDigits = 4;

/// The numbers 1 to `count` in the order of their texts, which have four digits or more.
class KeyOrder {
 public:
  explicit KeyOrder(long long count) : count_(count) {}
  /// 0 behind the last.
  long long next() {
    if (at_ >= kFirstParent && at_ * 10 <= count_) return at_ *= 10;
    while (at_ > kLastShort && (at_ % 10 == 9 || at_ == count_)) at_ /= 10;
    const bool isLast = at_ == count_ || at_ == kLastShort;
    return at_ = isLast ? 0 : at_ + 1;
  }

 private:
  long long count_;
  long long at_ = 0;
};

/// Puts the lines of the list together and writes them in large blocks.
class EntryWriter {
 public:
  EntryWriter(int fd, const std::vector<std::string>& filters, long long time) : fd_(fd), time_(std::to_string(time)) {
    for (const std::string& name : filters) filters_.push_back(escapedSparingly(name));
  }
  void write(long long number, const BruteEntry& entry) {
    const std::size_t most = kFixedRoom + filters_[entry.filter].size() + entry.address.size() +
                             (entry.line.size() + entry.user.size()) * kLongestEscape;
    if (used_ + most > size_ && !drain(most)) return;
    char* to = buffer_.get() + used_;
    const auto put = [&to](std::string_view text) { to = static_cast<char*>(mempcpy(to, text.data(), text.size())); };
    std::array<char, 24> digits;
    const auto inDigits = [&digits](long long n) {
      const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), n).ptr;
      return std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data()));
    };
    put(time_);
    const std::string_view key = inDigits(number);
    if (key.size() < kKeyDigits) put(std::string_view("000").substr(key.size() - 1));
    put(key);
    put("=attempts=");
    put(inDigits(entry.attempts));
    put("&filter=");
    put(filters_[entry.filter]);
    put("&ip=");
    put(entry.address);
    put("&log=");
    to = writeSparingly(to, entry.line);
    put("&time=");
    put(time_);
    if (!entry.user.empty()) {
      put("&user=");
      to = writeSparingly(to, entry.user);
    }
    *to++ = '\n';
    used_ = static_cast<std::size_t>(to - buffer_.get());
  }
  bool finish() { return drain(0) && !failed_; }

 private:
  bool drain(std::size_t wanted) {
    if (used_ > 0 && !failed_) failed_ = sys::writeAll(fd_, {buffer_.get(), used_}) < used_;
    used_ = 0;
    if (failed_ || wanted <= size_) return !failed_;
    size_ = std::max(kBlock, wanted);
    buffer_.reset(new char[size_]);
    return true;
  }

  int fd_;
  std::string time_;
  std::vector<std::string> filters_;
  std::unique_ptr<char[]> buffer_;
  std::size_t size_ = 0, used_ = 0;
  bool failed_ = false;
};

bool isKeyOf(std::string_view line, std::string_view time) {
  return line.size() > time.size() + 4 && line.starts_with(time) &&
         line.find_first_not_of("0123456789", time.size()) == line.find('=') && line.find('=') >= time.size() + 4;
}

/// How many entries of that time the list holds; a torn line at its end is cut off. -1 with errno when that failed.
long long countThere(int fd, const std::string& time) {
  LineReader lines(fd);
  std::string_view line;
  long long count = 0;
  while (lines.next(line)) count += isKeyOf(line, time) ? 1 : 0;
  if (lines.failed()) return -1;
  if (lines.unfinished() > 0 && sys::ftruncate(fd, lines.consumed()) != 0) return -1;
  return count;
}

bool writeEntries(int fd, const SpooledEntries& entries, const std::vector<std::string>& filters, long long time,
                  long long skipped) {
  std::vector<std::unique_ptr<SpoolReader>> readers;
  for (const long long start : entries.starts) {
    readers.push_back(std::make_unique<SpoolReader>(entries.path.c_str(), start));
  }
  EntryWriter out(fd, filters, time);
  KeyOrder order(entries.count);
  for (long long number = order.next(); number != 0; number = order.next()) {
    BruteEntry entry;
    const std::size_t reader = keyLengthOf(number);
    if (reader >= readers.size() || !readers[reader]->next(entry) || entry.filter >= filters.size()) {
      errorLog("%s ends before its last entry: %lld of %lld", entries.path.c_str(), number, entries.count);
      break;
    }
    if (skipped-- <= 0) out.write(number, entry);
  }
  return out.finish() && sys::fsync(fd) == 0;
}

int cannotAppend(const char* path, int error) {
  errorLog("Unable to %s for appending: %s", path, std::strerror(error));
  return 0;
}

/// Whether the file ends in the middle of a line.
bool endsTorn(int fd, off_t size) {
  char last = '\n';
  return size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

/// Under the lock and as the panel's user.
int appendToList(const char* path, const SpooledEntries& entries, const std::vector<std::string>& filters,
                 long long time, bool resume) {
  const FailScope scope("brute_entries");
  const Descriptor list = openPanelFileToAppend(path);
  struct stat before {};
  if (!list || sys::fstat(list.get(), before) != 0) return cannotAppend(path, errno);
  if (!S_ISREG(before.st_mode)) return cannotAppend(path, EINVAL);
  const long long there = resume ? countThere(list.get(), std::to_string(time)) : 0;
  if (there < 0 || sys::fstat(list.get(), before) != 0) return cannotAppend(path, errno);
  const bool readied = !endsTorn(list.get(), before.st_size) || sys::writeAll(list.get(), "\n") == 1;
  if (readied && writeEntries(list.get(), entries, filters, time, there)) return 1;
  const int error = errno;
  static_cast<void>(sys::ftruncate(list.get(), before.st_size));
  return cannotAppend(path, error);
}

}  // namespace

int appendBruteEntries(const SpooledEntries& entries, const std::vector<std::string>& filters, long long time,
                       bool resume) {
  if (entries.count == 0) return 1;
  const std::string path = bruteEntriesFile();
  const AsUser panel(kPanelUser);
  FileLock lock;
  char reason[kLockReasonSize] = "";
  if (!lock.take(path.c_str(), kLockMaximumAge, "check_brute_force_logs", reason)) {
    errorLog("Unable to %s for appending: %s", path.c_str(), reason);
    return 0;
  }
  return appendToList(path.c_str(), entries, filters, time, resume);
}

long long timeOfLastEntry() {
  constexpr off_t kLook = 4096;
  const AsUser panel(kPanelUser);
  const Descriptor list = openPanelFile(bruteEntriesFile().c_str());
  struct stat what {};
  if (!list || sys::fstat(list.get(), what) != 0) return 0;
  std::string end(static_cast<std::size_t>(std::min<off_t>(kLook, what.st_size)), '\0');
  if (::lseek(list.get(), what.st_size - static_cast<off_t>(end.size()), SEEK_SET) < 0) return 0;
  if (sys::read(list.get(), end.data(), end.size()) != static_cast<ssize_t>(end.size())) return 0;
  const std::size_t at = end.rfind("&time=");
  ConfigFile pair(nullptr);
  if (at != std::string::npos) pair.fillFromPost(std::string_view(end).substr(at + 1, end.find('\n', at) - at - 1));
  long long time = 0;
  static_cast<void>(pair.getValue("time", &time));
  return time;
}

}  // namespace zvtaskq
