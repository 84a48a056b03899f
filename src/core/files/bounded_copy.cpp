#include "core/files/bounded_copy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "core/sys/safe_point.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {
constexpr std::size_t kBlock = 128UL * 1024;
}

BoundedCopy::BoundedCopy(int from, int to, long long mostData, int seconds)
    : from_(from),
      to_(to),
      shift_(std::max<long long>(::lseek(to, 0, SEEK_CUR), 0)),
      room_(mostData),
      deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(seconds)) {}

int BoundedCopy::upTo(long long end) {
  while (done_ < end) {
    off_t begin = ::lseek(from_, done_, SEEK_DATA);
    if (begin < 0 && errno == ENXIO) return endInHole(end);
    // A file system that knows nothing of holes has data all over.
    const bool knowsHoles = begin >= 0;
    if (!knowsHoles) begin = done_;
    if (begin >= end) return endInHole(end);
    off_t hole = knowsHoles ? ::lseek(from_, begin, SEEK_HOLE) : end;
    if (hole < 0 || hole > end) hole = end;
    if (!copyStretch(begin, hole)) return 0;
    // The file has become shorter.
    if (done_ < hole) return 1;
  }
  return 1;
}

int BoundedCopy::toEnd() {
  for (;;) {
    struct stat now {};
    if (sys::fstat(from_, now) != 0) return 0;
    const long long before = done_;
    if (now.st_size <= done_) return 1;
    if (!upTo(now.st_size)) return 0;
    if (done_ == before) return 1;
  }
}

int BoundedCopy::copyStretch(long long begin, long long end) {
  if (::lseek(from_, begin, SEEK_SET) < 0 || ::lseek(to_, shift_ + begin, SEEK_SET) < 0) return 0;
  std::vector<char> block(kBlock);
  for (done_ = begin; done_ < end;) {
    if (!mayGoOn()) return 0;
    const ssize_t got = sys::read(from_, block.data(), std::min(kBlock, static_cast<std::size_t>(end - done_)));
    if (got <= 0) return got == 0 ? 1 : 0;
    room_ -= got;
    if (room_ < 0) {
      errno = EFBIG;
      return 0;
    }
    const std::string_view piece(block.data(), static_cast<std::size_t>(got));
    if (sys::writeAll(to_, piece) != piece.size()) return 0;
    done_ += got;
  }
  return 1;
}

int BoundedCopy::mayGoOn() const {
  atSafePoint();
  if (std::chrono::steady_clock::now() < deadline_) return 1;
  errno = ETIMEDOUT;
  return 0;
}

/// There is no data up to `end`. The length counts all the same, but not past what is left of a file that has become
/// shorter.
int BoundedCopy::endInHole(long long end) {
  struct stat now {};
  if (sys::fstat(from_, now) != 0) return 0;
  const long long reached = std::max(done_, std::min<long long>(end, now.st_size));
  if (reached > done_ && sys::ftruncate(to_, shift_ + reached) != 0) return 0;
  done_ = reached;
  return ::lseek(to_, shift_ + done_, SEEK_SET) < 0 ? 0 : 1;
}

int copyContent(int from, int to, long long size, long long mostData) {
  return BoundedCopy(from, to, mostData).upTo(size);
}

}  // namespace zvtaskq
