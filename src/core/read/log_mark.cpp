#include "core/read/log_mark.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace zvtaskq {

namespace {

constexpr long long kCheckedBytes = 4096;
constexpr std::uint64_t kFnvStart = 0xCBF29CE484222325ULL, kFnvStep = 0x100000001B3ULL;

/// The check sum of what stands before `offset`; false when it cannot be read.
bool checkBefore(int fd, long long offset, unsigned long long& check) {
  char bytes[kCheckedBytes];
  const long long wanted = std::min(offset, kCheckedBytes);
  const ssize_t got = ::pread(fd, bytes, static_cast<std::size_t>(wanted), offset - wanted);
  if (got != wanted) return false;
  std::uint64_t sum = kFnvStart;
  for (const char c : std::string_view(bytes, static_cast<std::size_t>(got))) {
    sum = (sum ^ static_cast<unsigned char>(c)) * kFnvStep;
  }
  check = sum;
  return true;
}

}  // namespace

LogMark LogMark::at(int fd, long long offset) {
  LogMark mark;
  struct stat what {};
  if (sys::fstat(fd, what) != 0 || !checkBefore(fd, offset, mark.check)) return {};
  mark.device = what.st_dev;
  mark.inode = what.st_ino;
  mark.offset = offset;
  return mark;
}

LogMark LogMark::fromText(const char* text) {
  LogMark mark;
  if (text == nullptr) return mark;
  const int found = std::sscanf(text, "%llu:%llu:%lld:%llx", &mark.device, &mark.inode, &mark.offset, &mark.check);
  return found == 4 && mark.offset > 0 ? mark : LogMark{};
}

std::string LogMark::text() const {
  char into[96];
  std::snprintf(into, sizeof into, "%llu:%llu:%lld:%llx", device, inode, offset, check);
  return into;
}

bool LogMark::fits(int fd) const {
  unsigned long long now = 0;
  return offset > 0 && checkBefore(fd, offset, now) && now == check;
}

bool LogMark::isOf(int fd) const {
  struct stat what {};
  return fits(fd) && sys::fstat(fd, what) == 0 && what.st_dev == device && what.st_ino == inode;
}

}  // namespace zvtaskq
