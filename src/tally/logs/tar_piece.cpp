#include "tally/logs/tar_piece.h"

#include <cstdint>
#include <cstdio>

#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kBlock = 512;
constexpr long long kLargestOctal = 077777777777LL;

/// Where the fields of a header block begin, and how long they are.
struct Field {
  std::size_t at, length;
};
constexpr Field kName{0, 100}, kMode{100, 8}, kUser{108, 8}, kGroup{116, 8}, kSize{124, 12}, kTime{136, 12};
constexpr Field kSum{148, 8}, kKind{156, 1}, kMagic{257, 8}, kPrefix{345, 155};

void put(std::string& block, Field field, std::string_view text) {
  text.copy(block.data() + field.at, text.size());
}

void putNumber(std::string& block, Field field, long long value) {
  if (value > kLargestOctal) {
    // Past 8 GB: the number itself, its first bit telling so.
    for (std::size_t i = field.length; i-- > 1; value >>= 8) block[field.at + i] = static_cast<char>(value & 0xFF);
    block[field.at] = static_cast<char>(0x80);
    return;
  }
  char digits[32];
  std::snprintf(digits, sizeof digits, "%0*llo", static_cast<int>(field.length) - 1,
                static_cast<unsigned long long>(value < 0 ? 0 : value));
  put(block, field, digits);
}

/// The beginning of a mark: a header with one field of 16 bytes in it, which is called "ZM".
constexpr std::string_view kMarkHead("\x1F\x8B\x08\x04\0\0\0\0\0\xFF\x14\0ZM\x10\0", kGzipMarkPlace);
constexpr std::size_t kMarkNumber = 8;
/// An empty block, the last one; the check sum and the length of nothing.
constexpr std::string_view kMarkTail("\x01\0\0\xFF\xFF\0\0\0\0\0\0\0\0", 13);
static_assert(kMarkHead.size() + 2 * kMarkNumber + kMarkTail.size() == kGzipMarkSize);

std::string littleEndian(std::uint64_t value, std::size_t bytes) {
  std::string out;
  for (std::size_t i = 0; i < bytes; ++i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
  return out;
}

std::uint32_t crc32(std::string_view text) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : text) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
  }
  return ~crc;
}

}  // namespace

std::string tarHeader(const std::string& name, const struct stat& what) {
  const std::size_t slash = name.rfind('/');
  const std::string prefix = slash == std::string::npos ? "" : name.substr(0, slash);
  const std::string last = slash == std::string::npos ? name : name.substr(slash + 1);
  if (prefix.size() > kPrefix.length || last.empty() || last.size() > kName.length) return {};
  std::string block(kBlock, '\0');
  put(block, kName, last);
  put(block, kPrefix, prefix);
  putNumber(block, kMode, 0644);
  putNumber(block, kUser, 0);
  putNumber(block, kGroup, 0);
  putNumber(block, kSize, what.st_size);
  putNumber(block, kTime, what.st_mtim.tv_sec);
  put(block, kKind, "0");
  put(block, kMagic,
      std::string_view("ustar\0"
                       "00",
                       8));
  put(block, kSum, "        ");
  long long sum = 0;
  for (const char c : block) sum += static_cast<unsigned char>(c);
  putNumber(block, Field{kSum.at, kSum.length - 1}, sum);
  block[kSum.at + kSum.length - 2] = '\0';
  return block;
}

std::string tarPadding(long long size) {
  const std::size_t over = static_cast<std::size_t>(size) % kBlock;
  return std::string(over == 0 ? 0 : kBlock - over, '\0');
}

std::string gzipStored(std::string_view text) {
  const std::uint64_t length = text.size();
  std::string out("\x1F\x8B\x08\0\0\0\0\0\0\xFF\x01", 11);
  out += littleEndian(length, 2) + littleEndian(~length, 2);
  out += text;
  return out + littleEndian(crc32(text), 4) + littleEndian(length, 4);
}

std::string gzipMark(long long number) {
  return joined(kMarkHead, gzipMarkNumber(number), kMarkTail);
}

std::string gzipMarkNumber(long long number) {
  const auto bits = static_cast<std::uint64_t>(number);
  return littleEndian(bits, kMarkNumber) + littleEndian(~bits, kMarkNumber);
}

std::optional<long long> readGzipMark(std::string_view beginning) {
  if (beginning.size() < kGzipMarkSize || !beginning.starts_with(kMarkHead)) return std::nullopt;
  std::uint64_t bits = 0;
  for (std::size_t i = kMarkNumber; i-- > 0;) {
    bits = (bits << 8) | static_cast<unsigned char>(beginning[kGzipMarkPlace + i]);
  }
  const auto number = static_cast<long long>(bits);
  if (beginning.substr(kGzipMarkPlace, 2 * kMarkNumber) != gzipMarkNumber(number)) return std::nullopt;
  return number;
}

}  // namespace zvtaskq
