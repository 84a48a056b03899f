#include "core/read/line_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kBlock = std::size_t{256} * 1024;
constexpr std::size_t kRoomLeft = 32;

/// A line without what does not belong to its text: a CR at its end, and everything from a NUL on.
std::string_view trimmedLine(std::string_view line, bool mayHoldNul = true) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (!mayHoldNul) return line;
  const void* nul = std::memchr(line.data(), '\0', line.size());
  if (nul != nullptr) line = line.substr(0, static_cast<std::size_t>(static_cast<const char*>(nul) - line.data()));
  return line;
}

bool isBoundary(char c) {
  return c == '\n' || c == '\r' || c == '\xff';
}

/// Makes sure that `used` bytes and a few more fit. 0 when memory is short.
int ensureLineRoom(std::size_t used, char*& buffer, std::size_t& size) {
  if (buffer == nullptr) {
    size = kFirstLineBuffer;
    return growBuffer(size, buffer);
  }
  return size - used >= kRoomLeft ? 1 : newBuffer(size, buffer);
}

bool tooLong(std::size_t used, std::size_t size, int maxLength) {
  if (maxLength <= 0 || size - used >= kRoomLeft || used <= static_cast<std::size_t>(maxLength)) return false;
  errorLogAndDebug(100, "Line length (%d) is greater than max line length (%d). Chopping value.",
                   static_cast<int>(used), maxLength);
  return true;
}

}  // namespace

// The buffer is left uninitialised: clearing a quarter of a megabyte for a file of one line costs more than reading it.
LineReader::LineReader(int fd, long long longest)
    : fd_(fd), longest_(longest), buffer_(new char[kBlock]), size_(kBlock) {}

LineReader::LineReader(int fd, LongLines longLines) : LineReader(fd, std::numeric_limits<long long>::max()) {
  longLines_ = longLines;
}

LineReader::~LineReader() = default;

bool LineReader::next(std::string_view& line) {
  for (;;) {
    if (looked_ < end_) lookAtNews();
    const char* from = buffer_.get() + scanned_;
    const void* feed = std::memchr(from, '\n', end_ - scanned_);
    if (feed != nullptr) {
      const std::size_t at = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.get());
      line = trimmedLine({buffer_.get() + start_, at - start_}, holdsNul_);
      consumed_ += static_cast<long long>(at + 1 - start_) + std::exchange(dropped_, 0);
      start_ = scanned_ = at + 1;
      return true;
    }
    scanned_ = end_;
    if (!fill()) return false;
  }
}

bool LineReader::nextBlock(std::string_view& lines) {
  for (;;) {
    const void* feed = ::memrchr(buffer_.get() + scanned_, '\n', end_ - scanned_);
    if (feed != nullptr) {
      const std::size_t end = static_cast<std::size_t>(static_cast<const char*>(feed) - buffer_.get()) + 1;
      lines = {buffer_.get() + start_, end - start_};
      consumed_ += static_cast<long long>(lines.size()) + std::exchange(dropped_, 0);
      start_ = scanned_ = end;
      return true;
    }
    scanned_ = end_;
    if (!fill()) return false;
  }
}

void LineReader::skipToBoundary() {
  for (;;) {
    while (start_ < end_) {
      ++consumed_;
      if (isBoundary(buffer_[start_++])) {
        scanned_ = start_;
        return;
      }
    }
    scanned_ = start_;
    if (!fill()) return;
  }
}

bool LineReader::fill() {
  if (expected_ < 0) return false;
  if (start_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + start_, end_ - start_);
    end_ -= start_;
    scanned_ -= start_;
    looked_ -= std::min(looked_, start_);
    start_ = 0;
  }
  if (unfinished() >= longest_) {
    errno = EFBIG;
    failed_ = true;
    return false;
  }
  if (end_ == size_) {
    // What is left of a chopped line ends in its line feed.
    if (longLines_ == LongLines::chop) return chop();
    if (!makeRoom()) return false;
  }
  const ssize_t got = sys::read(fd_, buffer_.get() + end_, size_ - end_);
  failed_ = got < 0;
  if (got <= 0) return false;
  end_ += static_cast<std::size_t>(got);
  if (expected_ > 0 && (expected_ -= got) <= 0) expected_ = -1;
  return true;
}

/// One look at a whole block is far cheaper than one at each of its lines.
void LineReader::lookAtNews() {
  const std::string_view news(buffer_.get() + looked_, end_ - looked_);
  holdsNul_ = holdsNul_ || news.find('\0') != std::string_view::npos;
  holdsCr_ = holdsCr_ || news.find('\r') != std::string_view::npos;
  looked_ = end_;
}

/// The buffer is full of the beginning of one line.
bool LineReader::makeRoom() {
  const void* nul = std::memchr(buffer_.get(), '\0', end_);
  if (nul == nullptr) return grow();
  const std::size_t kept = static_cast<std::size_t>(static_cast<const char*>(nul) - buffer_.get()) + 1;
  if (kept == size_) return grow();
  dropped_ += static_cast<long long>(end_ - kept);
  end_ = scanned_ = looked_ = kept;
  return true;
}

/// Keeps the first half of the buffer, and drops what follows up to the line's end.
bool LineReader::chop() {
  const std::size_t kept = size_ / 2;
  char* const rest = buffer_.get() + kept;
  dropped_ += static_cast<long long>(end_ - kept);
  end_ = scanned_ = kept;
  looked_ = std::min(looked_, kept);
  for (ssize_t got = 0; (got = sys::read(fd_, rest, size_ - kept)) != 0;) {
    failed_ = got < 0;
    if (failed_) return false;
    const void* feed = std::memchr(rest, '\n', static_cast<std::size_t>(got));
    const std::size_t part = feed == nullptr ? static_cast<std::size_t>(got)
                                             : static_cast<std::size_t>(static_cast<const char*>(feed) - rest);
    dropped_ += static_cast<long long>(part);
    if (feed == nullptr) continue;
    end_ = kept + static_cast<std::size_t>(got) - part;
    std::memmove(rest, feed, end_ - kept);
    errorLog("A line of a log is longer than %lld bytes. Chopping it.", static_cast<long long>(kept));
    return true;
  }
  return false;
}

bool LineReader::grow() {
  std::unique_ptr<char[]> larger(new (std::nothrow) char[size_ * 2]);
  if (!larger) {
    errno = ENOMEM;
    failed_ = true;
    return false;
  }
  std::memcpy(larger.get(), buffer_.get(), end_);
  buffer_ = std::move(larger);
  size_ *= 2;
  return true;
}

bool nextLine(std::string_view& text, std::string_view& line) {
  const std::size_t feed = text.find('\n');
  if (feed == std::string_view::npos) return false;
  line = trimmedLine(text.substr(0, feed));
  text.remove_prefix(feed + 1);
  return true;
}

int readLine(std::FILE* file, char*& buffer, std::size_t& size, int maxLength) {
  std::size_t used = 0;
  for (int c = ::getc_unlocked(file); c != EOF; c = ::getc_unlocked(file)) {
    if (buffer != nullptr && tooLong(used, size, maxLength)) {
      std::ungetc(c, file);
      buffer[used] = '\0';
      return 1;
    }
    if (!ensureLineRoom(used, buffer, size)) return 0;
    if (c == '\n') {
      // Only a CR right before the line feed goes: one before a NUL ends a text, not the line.
      if (used > 0 && buffer[used - 1] == '\r') --used;
      buffer[used] = '\0';
      return 1;
    }
    buffer[used++] = static_cast<char>(c);
  }
  return 0;
}

int readLine(const char*& text, char*& buffer, std::size_t& size) {
  std::string_view rest(text), line;
  if (!nextLine(rest, line)) return 0;
  while (buffer == nullptr || size - line.size() < kRoomLeft || size < line.size()) {
    if (!ensureLineRoom(buffer == nullptr ? 0 : size, buffer, size)) return 0;
  }
  std::memcpy(buffer, line.data(), line.size());
  buffer[line.size()] = '\0';
  text = rest.data();
  return 1;
}

}  // namespace zvtaskq
