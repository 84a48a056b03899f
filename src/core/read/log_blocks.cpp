#include "core/read/log_blocks.h"

#include <unistd.h>

#include <cstring>

#include "core/sys/log.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

/// Small enough to be searched while it is still near the processor.
constexpr std::size_t kBlock = std::size_t{256} * 1024;

}  // namespace

// One byte more, for the line feed of a line that is cut.
LogBlocks::LogBlocks(int fd, long long position)
    : fd_(fd), buffer_(new char[kBlock + 1]), position_(position), seen_(position) {}

bool LogBlocks::read(char* into, std::size_t room, std::size_t& got) {
  const ssize_t count = sys::read(fd_, into, room);
  failed_ = count < 0;
  got = count > 0 ? static_cast<std::size_t>(count) : 0;
  seen_ += static_cast<long long>(got);
  return got > 0;
}

bool LogBlocks::handOut(std::size_t size, long long position, std::string_view& lines) {
  lines = {buffer_.get(), size};
  handedOut_ = size;
  position_ = position;
  return true;
}

bool LogBlocks::next(std::string_view& lines) {
  std::memmove(buffer_.get(), buffer_.get() + handedOut_, end_ - handedOut_);
  end_ -= handedOut_;
  handedOut_ = 0;
  for (std::size_t got = 0; read(buffer_.get() + end_, kBlock - end_, got);) {
    const void* feed = ::memrchr(buffer_.get() + end_, '\n', got);
    end_ += got;
    if (feed != nullptr) {
      const auto size = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.get()) + 1;
      return handOut(size, position_ + static_cast<long long>(size), lines);
    }
    if (end_ == kBlock) return handOutLongLine(lines);
  }
  return false;
}

/// The buffer is full of the beginning of one line, whose end is looked for.
bool LogBlocks::handOutLongLine(std::string_view& lines) {
  const std::unique_ptr<char[]> rest(new char[kBlock]);
  for (std::size_t got = 0; read(rest.get(), kBlock, got);) {
    const void* feed = std::memchr(rest.get(), '\n', got);
    if (feed == nullptr) continue;
    const auto behind = static_cast<long long>(rest.get() + got - static_cast<const char*>(feed)) - 1;
    seen_ -= behind;
    if (::lseek(fd_, seen_, SEEK_SET) < 0) return false;
    errorLog("A line of a log is longer than %lld bytes. Chopping it.", static_cast<long long>(kBlock));
    buffer_[kBlock] = '\n';
    end_ = kBlock + 1;
    return handOut(end_, seen_, lines);
  }
  return false;
}

}  // namespace zvtaskq
