#include "tally/traffic/web_traffic.h"

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/files/safe_file.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

/// Whole numbers up to this many digits are exact, and never overflow.
constexpr int kExactDigits = 15;

constexpr std::uint64_t eachByte(std::uint64_t byte) {
  return byte * 0x0101010101010101ULL;
}

/// The number that up to seven digits at `p` spell, all read at once: lengths that change from line to line cost a loop
/// over the digits more than the digits. `p` moves behind them. False when there are none or more.
bool readFewDigits(const char*& p, double& number) {
  std::uint64_t digits = 0;
  std::memcpy(&digits, p, sizeof digits);
  digits ^= eachByte('0');
  // The lowest byte that is no digit gets its highest bit; what a carry does to those above does not matter.
  const std::uint64_t others = ((digits + eachByte(0x80 - 10)) | digits) & eachByte(0x80);
  if (others == 0) return false;
  const int length = std::countr_zero(others) / 8;
  if (length == 0) return false;
  // Digits to the end, zeros in front; then pairs, fours and the eight are put together.
  digits <<= 64 - 8 * length;
  digits = digits * 10 + (digits >> 8);
  constexpr std::uint64_t kPairs = 0x000000FF000000FFULL;
  digits = ((digits & kPairs) * 0x000F424000000064ULL + ((digits >> 16) & kPairs) * 0x0000271000000001ULL) >> 32;
  number = static_cast<double>(static_cast<std::int64_t>(digits));
  p += length;
  return true;
}

/// Reads digits at `p`, and moves behind them. False when there are none or too many to be sure of; what follows them
/// stops the loop, at the latest the line feed before `end`.
bool readDigits(const char*& p, const char* end, double& number) {
  if constexpr (std::endian::native == std::endian::little) {
    if (end - p >= 8 && readFewDigits(p, number)) return true;
  }
  const char* const start = p;
  std::uint64_t sum = 0;
  for (unsigned digit = 0; (digit = static_cast<unsigned>(*p - '0')) < 10; ++p) sum = sum * 10 + digit;
  number = static_cast<double>(static_cast<std::int64_t>(sum & INT64_MAX));
  return p > start && p - start <= kExactDigits;
}

bool counts(double number) {
  return number > 0 && std::isfinite(number);
}

/// Any line, read as it always was.
void addOddLine(std::string_view line, ByteSums& sums) {
  std::string_view rest = line, text;
  if (!nextLine(rest, text) || text.empty() || text.front() == '-') return;
  double sent = 0, received = 0;
  const int found = std::sscanf(std::string(text).c_str(), "%lf %lf", &sent, &received);
  if (found >= 1 && counts(sent)) sums.total += sent;
  if (found < 2 || !counts(received)) return;
  sums.total += received;
  sums.upload += received;
}

}  // namespace

void addByteLines(std::string_view lines, ByteSums& sums) {
  const char* p = lines.data();
  const void* const last = ::memrchr(p, '\n', lines.size());
  if (last == nullptr) return;
  const char* const end = static_cast<const char*>(last) + 1;
  while (p < end) {
    const char* const line = p;
    double sent = 0, received = 0;
    if (readDigits(p, end, sent)) {
      if (*p == '\n') {
        sums.total += sent;
        ++p;
        continue;
      }
      if (*p == ' ' && readDigits(++p, end, received) && *p == '\n') {
        sums.total += sent;
        sums.total += received;
        sums.upload += received;
        ++p;
        continue;
      }
    }
    const char* const feed = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
    p = feed + 1;
    addOddLine({line, static_cast<std::size_t>(p - line)}, sums);
  }
}

double getHttpTotal(const char* path, double& uploadTotal) {
  if (path == nullptr) return 0;
  const AsRoot root;
  const Descriptor file = openRegularFile(path);
  if (!file) return 0;
  ByteSums sums;
  LineReader reader(file.get());
  for (std::string_view lines; reader.nextBlock(lines);) addByteLines(lines, sums);
  if (reader.failed()) errorLog("Unable to read %s: %s", path, std::strerror(errno));
  if (sums.total < 0) {
    errorLog("*** %s summed up a negative total of %lf", path, sums.total);
    sums.total = 0;
  }
  uploadTotal += sums.upload;
  return sums.total;
}

}  // namespace zvtaskq
