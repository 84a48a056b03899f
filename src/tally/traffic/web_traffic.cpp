#include "tally/traffic/web_traffic.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "core/files/safe_file.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

/// Whole numbers up to this many digits are exact, and never overflow.
constexpr int kExactDigits = 15;

/// Reads digits at `p`, and moves behind them. False when there are none or too many to be sure of; what follows them
/// stops the loop, at the latest the line feed of the last line.
bool readDigits(const char*& p, double& number) {
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

#ifdef __SSE2__
/// What is looked at together, and what is read at once of a number.
constexpr std::ptrdiff_t kTogether = 64, kFewDigits = 8;

/// Which of 64 bytes are no digits, a bit each.
std::uint64_t othersIn(const char* bytes) {
  std::uint64_t digits = 0;
  for (int i = 0; i < 4; ++i) {
    const __m128i part = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes) + i);
    const __m128i values = _mm_sub_epi8(part, _mm_set1_epi8('0'));
    const __m128i isDigit = _mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values);
    digits |= static_cast<std::uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(isDigit))) << (16 * i);
  }
  return ~digits;
}

/// The highest bytes of a number, as many as the place says.
constexpr auto kLastBytes = [] {
  std::array<std::uint64_t, kFewDigits + 1> masks{};
  for (std::size_t i = 1; i < masks.size(); ++i) masks[i] = masks[i - 1] >> 8 | 0xFFULL << 56;
  return masks;
}();

/// The number that the one to eight digits before `end` spell. The eight bytes there are read at once: lengths that
/// change from line to line cost a loop over the digits more than the digits.
std::uint64_t numberBefore(const char* end, std::ptrdiff_t length) {
  std::uint64_t digits = 0;
  std::memcpy(&digits, end - kFewDigits, sizeof digits);
  // What is no digit of it goes; then pairs, fours and the eight are put together.
  digits = (digits ^ 0x3030303030303030ULL) & kLastBytes[static_cast<std::size_t>(length)];
  digits = digits * 10 + (digits >> 8);
  constexpr std::uint64_t kPairs = 0x000000FF000000FFULL;
  return ((digits & kPairs) * 0x000F424000000064ULL + ((digits >> 16) & kPairs) * 0x0000271000000001ULL) >> 32;
}

/// Lines of one or two short numbers, which nearly all are: taken number by number, so that where one line ends need
/// not be known before the next is looked at.
class PlainLines {
 public:
  explicit PlainLines(const char* from) : line_(from), number_(from) {}

  /// Takes the number that ends at `at`. False when that is not how a plain line goes on.
  bool take(const char* at) {
    const std::ptrdiff_t length = at - number_;
    if (length < 1 || length > kFewDigits) return false;
    const std::uint64_t value = numberBefore(at, length);
    number_ = at + 1;
    if (*at == '\n') {
      line_ = number_;
      total_ += sent_ + value;
      upload_ += isSecond_ ? value : 0;
      sent_ = 0;
      isSecond_ = false;
      return true;
    }
    sent_ = value;
    return *at == ' ' && !std::exchange(isSecond_, true);
  }

  /// Adds the whole lines taken; returns the first that was not.
  const char* finish(ByteSums& sums) const {
    sums.total += static_cast<double>(total_);
    sums.upload += static_cast<double>(upload_);
    return line_;
  }

 private:
  const char* line_;
  const char* number_;
  std::uint64_t sent_ = 0, total_ = 0, upload_ = 0;
  bool isSecond_ = false;
};

/// Adds plain lines from `p` on until another comes or few bytes are left; returns where. What stands before `p` is
/// readable.
const char* addPlainLines(const char* p, const char* end, ByteSums& sums) {
  PlainLines lines(p);
  for (; end - p >= kTogether; p += kTogether) {
    for (std::uint64_t others = othersIn(p); others != 0; others &= others - 1) {
      if (!lines.take(p + std::countr_zero(others))) return lines.finish(sums);
    }
  }
  return lines.finish(sums);
}
#endif

/// Adds the line at `p`; returns its end.
const char* addLine(const char* p, const char* end, ByteSums& sums) {
  const char* const line = p;
  double sent = 0, received = 0;
  if (readDigits(p, sent)) {
    const bool isAlone = *p == '\n';
    if (isAlone || (*p == ' ' && readDigits(++p, received) && *p == '\n')) {
      sums.total += sent;
      sums.total += received;
      sums.upload += received;
      return p + 1;
    }
  }
  p = static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p))) + 1;
  addOddLine({line, static_cast<std::size_t>(p - line)}, sums);
  return p;
}

}  // namespace

void addByteLines(std::string_view lines, ByteSums& sums) {
  const char* p = lines.data();
  const void* const last = ::memrchr(p, '\n', lines.size());
  if (last == nullptr) return;
  const char* const end = static_cast<const char*>(last) + 1;
  while (p < end) {
#ifdef __SSE2__
    if (p - lines.data() >= kFewDigits) p = addPlainLines(p, end, sums);
    if (p == end) break;
#endif
    p = addLine(p, end, sums);
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
