#include "core/post_string.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace zvtaskq {

namespace {

// --- Decoding --------------------------------------------------------------------------------------------------

constexpr int kNoDigit = -1;

constexpr std::array<signed char, 256> makeHexTable() {
  std::array<signed char, 256> table{};
  for (auto& entry : table) entry = kNoDigit;
  for (unsigned i = 0; i < 10; ++i) table['0' + i] = static_cast<signed char>(i);
  for (unsigned i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = static_cast<signed char>(10 + i);
  return table;
}
constexpr std::array<signed char, 256> kHexValue = makeHexTable();

/// What a byte may mean to whoever reads an encoded text.
enum Meaning : std::uint8_t { kEndsText = 1, kEndsName = 2, kEndsValue = 4, kPercent = 8, kPlus = 16 };

constexpr std::array<std::uint8_t, 256> makeMeanings() {
  std::array<std::uint8_t, 256> table{};
  table['\0'] = kEndsText;
  table['='] = kEndsName;
  table['&'] = kEndsValue;
  table['%'] = kPercent;
  table['+'] = kPlus;
  return table;
}
constexpr std::array<std::uint8_t, 256> kMeaning = makeMeanings();

int hexValue(char c) { return kHexValue[static_cast<unsigned char>(c)]; }

bool means(char c, unsigned what) { return (kMeaning[static_cast<unsigned char>(c)] & what) != 0; }

/// The byte of the escape at `from`, which moves behind it. `ends` tells what ends the text around it.
char takeEscape(char*& from, unsigned ends) {
  const int high = hexValue(from[1]);
  const int low = high == kNoDigit ? kNoDigit : hexValue(from[2]);
  if (low != kNoDigit) {
    from += 3;
    return static_cast<char>(high * 16 + low);
  }
  // The odd ones: no digits, or the text's end in their midst.
  const int length = means(from[1], ends) ? 1 : means(from[2], ends) ? 2 : 3;
  from += length;
  if (length == 1) return '%';
  return length == 2 && high != kNoDigit ? static_cast<char>(high) : ' ';
}

/// Decodes what stands at `at` up to a byte that `ends` names, in one pass. Most texts hold little to decode, so each
/// stretch up to something special is passed over before anything is asked.
PostPart takePart(char*& at, unsigned ends, int keepPlus) {
  const unsigned special = ends | kPercent | (keepPlus ? 0U : unsigned{kPlus});
  char* const text = at;
  char* from = at;
  while (!means(*from, special)) ++from;
  char* to = from;
  while (!means(*from, ends)) {
    // Special and no end: an escape, or a plus.
    const char c = *from == '%' ? takeEscape(from, ends) : (++from, ' ');
    if (c == '\0') {
      while (!means(*from, ends)) ++from;
      break;
    }
    *to++ = c;
    while (!means(*from, special)) *to++ = *from++;
  }
  const char endedBy = *from;
  *to = '\0';
  at = endedBy == '\0' ? from : from + 1;
  return {text, static_cast<std::size_t>(to - text), endedBy};
}

// --- Encoding --------------------------------------------------------------------------------------------------

constexpr bool isKept(unsigned byte) {
  const bool letter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
  const bool control = byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
  return letter || control || byte >= 0x80;
}

/// What is written for a byte, and how much of it counts.
struct Escape {
  char text[kLongestEscape];
  std::uint8_t length;
};

constexpr std::array<Escape, 256> makeEscapes() {
  constexpr char digits[] = "0123456789ABCDEF";
  std::array<Escape, 256> table{};
  for (unsigned byte = 0; byte < table.size(); ++byte) {
    if (isKept(byte)) {
      table[byte] = {{static_cast<char>(byte), 0, 0}, 1};
    } else {
      table[byte] = {{'%', digits[byte >> 4], digits[byte & 15]}, kLongestEscape};
    }
  }
  return table;
}
constexpr std::array<Escape, 256> kEscapes = makeEscapes();
static_assert(sizeof(Escape) == kEscapeSlack);

}  // namespace

char getCharFromHex(const char* p) {
  const int high = hexValue(p[0]);
  if (high == kNoDigit) return ' ';
  if (p[1] == '\0') return static_cast<char>(high);
  const int low = hexValue(p[1]);
  return low == kNoDigit ? ' ' : static_cast<char>(high * 16 + low);
}

std::size_t fixPostString(char* text, int keepPlus) { return takePart(text, kEndsText, keepPlus).length; }

PostPart takePostName(char*& at, int keepPlus) { return takePart(at, kEndsText | kEndsName, keepPlus); }

PostPart takePostValue(char*& at, int keepPlus) { return takePart(at, kEndsText | kEndsValue, keepPlus); }

char* writeEscaped(char* to, std::string_view text) {
  // Four bytes are written whatever the byte: telling the cases apart would cost more than what is overwritten.
  for (const char c : text) {
    const Escape& escape = kEscapes[static_cast<unsigned char>(c)];
    std::memcpy(to, &escape, sizeof escape);
    to += escape.length;
  }
  return to;
}

}  // namespace zvtaskq
