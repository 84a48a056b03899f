#include "tally/bruteforce/records/spool.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/files/safe_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/identity.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kBlock = std::size_t{256} * 1024;
constexpr std::size_t kReadBlock = std::size_t{64} * 1024;
/// The last number of four digits.
constexpr long long kLastShort = 9999;

/// What stands before the address and the line of a spooled entry.
struct Head {
  long long attempts;
  std::uint32_t filter;
  std::uint32_t addressLength;
  std::uint32_t lineLength;
  std::uint32_t userOffset;
  std::uint32_t userLength;
  std::uint32_t unused;
};

}  // namespace

std::size_t keyLengthOf(long long number) {
  std::size_t digits = 0;
  for (; number > kLastShort; number /= 10) ++digits;
  return digits;
}

// --- Writing ---------------------------------------------------------------------------------------------------

int EntrySpool::open() {
  const FailScope scope("brute_spool");
  const AsUser panel(kPanelUser);
  if (sys::unlink(entries_.path.c_str()) != 0 && errno != ENOENT) return 0;
  file_ = Descriptor(sys::open(entries_.path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
  buffer_.reserve(kBlock);
  return file_ ? 1 : 0;
}

void EntrySpool::add(const BruteEntry& entry) {
  if (error_ == 0 && !file_ && !open()) error_ = errno;
  if (error_ != 0) return;
  ++entries_.count;
  if (keyLengthOf(entries_.count) >= entries_.starts.size()) entries_.starts.push_back(size_);
  const std::size_t userOffset =
      entry.user.empty() ? 0 : static_cast<std::size_t>(entry.user.data() - entry.line.data());
  const Head head{entry.attempts,
                  entry.filter,
                  static_cast<std::uint32_t>(entry.address.size()),
                  static_cast<std::uint32_t>(entry.line.size()),
                  static_cast<std::uint32_t>(userOffset),
                  static_cast<std::uint32_t>(entry.user.size()),
                  0};
  const std::size_t size = sizeof head + entry.address.size() + entry.line.size();
  if (buffer_.size() + size > kBlock) drain();
  buffer_.append(reinterpret_cast<const char*>(&head), sizeof head);
  buffer_.append(entry.address);
  buffer_.append(entry.line);
  size_ += static_cast<long long>(size);
}

void EntrySpool::drain() {
  const FailScope scope("brute_spool");
  if (error_ == 0 && !buffer_.empty() && sys::writeAll(file_.get(), buffer_) < buffer_.size()) error_ = errno;
  buffer_.clear();
}

int EntrySpool::finish() {
  drain();
  const FailScope scope("brute_spool");
  if (error_ == 0 && file_ && sys::fsync(file_.get()) != 0) error_ = errno;
  errno = error_;
  return error_ == 0 ? 1 : 0;
}

// --- Reading ---------------------------------------------------------------------------------------------------

SpoolReader::SpoolReader(const char* path, long long start) : file_(openRegularFile(path)), buffer_(kReadBlock) {
  if (file_ && ::lseek(file_.get(), start, SEEK_SET) < 0) file_.reset();
}

bool SpoolReader::next(BruteEntry& entry) {
  Head head;
  if (!ensure(sizeof head)) return false;
  std::memcpy(&head, &buffer_[begin_], sizeof head);
  if (!ensure(sizeof head + head.addressLength + head.lineLength)) return false;
  const char* text = &buffer_[begin_] + sizeof head;
  entry.attempts = head.attempts;
  entry.filter = head.filter;
  entry.address = {text, head.addressLength};
  entry.line = {text + head.addressLength, head.lineLength};
  entry.user = entry.line.substr(std::min<std::size_t>(head.userOffset, entry.line.size()), head.userLength);
  begin_ += sizeof head + head.addressLength + head.lineLength;
  return true;
}

bool SpoolReader::ensure(std::size_t wanted) {
  if (end_ - begin_ >= wanted) return true;
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  if (buffer_.size() < wanted + 1) buffer_.resize(wanted + 1);
  while (end_ < wanted) {
    const ssize_t got = sys::read(file_.get(), buffer_.data() + end_, buffer_.size() - end_);
    if (got <= 0) return false;
    end_ += static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace zvtaskq
