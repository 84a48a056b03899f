#include "core/post_string.h"

#include <array>
#include <cstring>

namespace zvtaskq {

namespace {

constexpr int kNoDigit = -1;

constexpr std::array<signed char, 256> makeHexTable() {
  std::array<signed char, 256> table{};
  for (auto& entry : table) entry = kNoDigit;
  for (unsigned i = 0; i < 10; ++i) table['0' + i] = static_cast<signed char>(i);
  for (unsigned i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = static_cast<signed char>(10 + i);
  return table;
}
constexpr std::array<signed char, 256> kHexValue = makeHexTable();

constexpr bool isKept(unsigned byte) {
  const bool letter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
  const bool control = byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
  return letter || control || byte >= 0x80;
}

constexpr std::array<bool, 256> makeKeptTable() {
  std::array<bool, 256> table{};
  for (unsigned byte = 0; byte < table.size(); ++byte) table[byte] = isKept(byte);
  return table;
}
constexpr std::array<bool, 256> kKept = makeKeptTable();
constexpr char kHexDigits[] = "0123456789ABCDEF";

int hexValue(char c) { return kHexValue[static_cast<unsigned char>(c)]; }

}  // namespace

char getCharFromHex(const char* p) {
  const int high = hexValue(p[0]);
  if (high == kNoDigit) return ' ';
  if (p[1] == '\0') return static_cast<char>(high);
  const int low = hexValue(p[1]);
  return low == kNoDigit ? ' ' : static_cast<char>(high * 16 + low);
}

std::size_t fixPostString(char* text, std::size_t length, int keepPlus) {
  text[length] = '\0';
  const char* const end = text + length;
  const char* from = text;
  char* to = text;
  // Most names and values hold nothing to decode: pass over what stays in its place.
  while (from < end && *from != '%' && *from != '+') ++from;
  to = text + (from - text);
  while (from < end) {
    char c = *from;
    if (c == '+' && !keepPlus) c = ' ';
    std::size_t step = 1;
    if (*from == '%' && from + 1 < end) {
      c = getCharFromHex(from + 1);
      step = from + 2 < end ? 3 : 2;
      if (c == '\0') break;
    }
    *to++ = c;
    from += step;
  }
  *to = '\0';
  return static_cast<std::size_t>(to - text);
}

std::size_t fixPostString(char* text, int keepPlus) { return fixPostString(text, std::strlen(text), keepPlus); }

void appendEscaped(std::string& out, std::string_view text) {
  const std::size_t had = out.size();
  out.resize(had + text.size() * 3);
  char* to = out.data() + had;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (kKept[byte]) {
      *to++ = c;
      continue;
    }
    *to++ = '%';
    *to++ = kHexDigits[byte >> 4];
    *to++ = kHexDigits[byte & 15];
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

}  // namespace zvtaskq
