#include "core/text/post_string.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

namespace zvtaskq {

namespace {

// --- Decoding --------------------------------------------------------------------------------------------------

/// The value of a digit; below 0 for anything else.
constexpr std::array<signed char, 256> makeHexTable() {
  std::array<signed char, 256> table{};
  for (auto& entry : table) entry = -1;
  for (unsigned i = 0; i < 10; ++i) table['0' + i] = static_cast<signed char>(i);
  for (unsigned i = 0; i < 6; ++i) table['A' + i] = table['a' + i] = static_cast<signed char>(10 + i);
  return table;
}
constexpr std::array<signed char, 256> kHexValue = makeHexTable();

int hexValue(char c) {
  return kHexValue[static_cast<unsigned char>(c)];
}

/// Copies from `from` to `to`, both of which move, what stands for itself: up to `stop`, a "%", `plus` or the end.
/// Sixteen bytes are looked at together, since where such a stretch ends cannot be foreseen.
template <char stop>
inline void copyPlain(const char*& from, const char* end, char*& to, char plus) {
#ifdef __SSE2__
  constexpr std::ptrdiff_t together = sizeof(__m128i);
  for (; end - from >= together; from += together, to += together) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    // More may be written than counts: no part is longer than what it was made of, so the room is there.
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
    const auto found = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
    const int marks = _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(found(stop), found('%')), found(plus)));
    if (marks == 0) continue;
    const int plain = std::countr_zero(static_cast<unsigned>(marks));
    from += plain;
    to += plain;
    return;
  }
#endif
  while (from != end && *from != stop && *from != '%' && *from != plus) *to++ = *from++;
}

/// Decodes the whole escapes that follow each other. What ends a part is no digit, so it need not be looked for.
inline void decodeEscapes(const char*& from, const char* end, char*& to) {
  for (; end - from > 2 && *from == '%'; from += 3) {
    const int byte = hexValue(from[1]) * 16 | hexValue(from[2]);
    if (byte <= 0) return;
    *to++ = static_cast<char>(byte);
  }
}

struct OddEscape {
  char byte;
  int length;
};

/// Any escape, one that lacks a digit included. Rare, and kept out of the way.
template <char stop>
[[gnu::noinline]] OddEscape oddEscape(const char* from, const char* end) {
  const auto partEndsIn = [&](std::ptrdiff_t bytes) { return end - from <= bytes || from[bytes] == stop; };
  const int length = partEndsIn(1) ? 1 : partEndsIn(2) ? 2 : 3;
  const int first = length == 1 ? '%' : hexValue(from[1]);
  const int byte = length == 3 ? first * 16 | hexValue(from[2]) : first;
  return {byte < 0 ? ' ' : static_cast<char>(byte), length};
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

constexpr bool mustBeEscaped(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < ' ' || byte >= 0x7f || c == '%' || c == '&' || c == '+' || c == '=';
}

#ifdef __SSE2__
/// Writes sixteen bytes, spaces as "+", and returns a bit for each that must be escaped instead.
inline unsigned copySixteen(char* to, const char* from) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  const auto found = [&](char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
  // As signed numbers, bytes above 0x7F are below the space too.
  const __m128i outside = _mm_or_si128(_mm_cmplt_epi8(bytes, _mm_set1_epi8(' ')), found('\x7f'));
  const __m128i marks = _mm_or_si128(_mm_or_si128(found('%'), found('&')), _mm_or_si128(found('+'), found('=')));
  // By these bits a space and "+" differ.
  const __m128i toPlus = _mm_and_si128(found(' '), _mm_set1_epi8(' ' ^ '+'));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_xor_si128(bytes, toPlus));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(outside, marks)));
}
#endif

/// Writes what stands for itself at the beginning of `text`, spaces as "+", and returns how much that was. As many
/// bytes as `text` has may be written to.
std::size_t copySpared(char* to, std::string_view text) {
  std::size_t done = 0;
#ifdef __SSE2__
  constexpr std::size_t together = sizeof(__m128i);
  // The last sixteen bytes are taken together with some that were taken before.
  for (std::size_t at = 0; text.size() >= together; at = std::min(at + together, text.size() - together)) {
    const unsigned stops = copySixteen(to + at, text.data() + at);
    if (stops != 0) return at + static_cast<std::size_t>(std::countr_zero(stops));
    if (at == text.size() - together) return text.size();
  }
#endif
  for (; done < text.size() && !mustBeEscaped(text[done]); ++done) to[done] = text[done] == ' ' ? '+' : text[done];
  return done;
}

}  // namespace

char getCharFromHex(const char* p) {
  const int high = hexValue(p[0]);
  const int byte = high < 0 || p[1] == '\0' ? high : high * 16 | hexValue(p[1]);
  return byte < 0 ? ' ' : static_cast<char>(byte);
}

PostReader::PostReader(std::string_view text, char* room, int keepPlus)
    : from_(text.data()), end_(from_ + ::strnlen(from_, text.size())), to_(room), plus_(keepPlus ? '%' : '+') {}

template <char stop>
PostPart PostReader::take() {
  char* const text = to_;
  // In local variables, since what is written through `to` could be this object, as far as the compiler knows.
  const char *from = from_, *const end = end_;
  char* to = text;
  const char plus = plus_;
  for (;;) {
    copyPlain<stop>(from, end, to, plus);
    decodeEscapes(from, end, to);
    if (from == end || *from == stop) break;
    if (*from == '%') {
      const OddEscape escape = oddEscape<stop>(from, end);
      from += escape.length;
      if (escape.byte == '\0') {
        from = std::find(from, end, stop);
        break;
      }
      *to++ = escape.byte;
    } else if (*from == plus) {
      *to++ = ' ';
      ++from;
    }
  }
  *to = '\0';
  const bool isLast = from == end;
  from_ = isLast ? from : from + 1;
  to_ = to + 1;
  return {text, static_cast<std::uint32_t>(to - text), isLast};
}

PostPart PostReader::takeName() {
  return take<'='>();
}

PostPart PostReader::takeValue() {
  return take<'&'>();
}

PostPart PostReader::takeRest() {
  return take<'\0'>();
}

std::size_t fixPostString(char* text, int keepPlus) {
  const std::string encoded = text;
  return PostReader(encoded, text, keepPlus).takeRest().length;
}

char* writeEscaped(char* to, std::string_view text) {
  // Four bytes are written whatever the byte: telling the cases apart would cost more than what is overwritten.
#pragma GCC unroll 4
  for (const char c : text) {
    const Escape& escape = kEscapes[static_cast<unsigned char>(c)];
    std::memcpy(to, &escape, sizeof escape);
    to += escape.length;
  }
  return to;
}

char* writeSparingly(char* to, std::string_view text) {
  constexpr char digits[] = "0123456789ABCDEF";
  for (;;) {
    const std::size_t spared = copySpared(to, text);
    to += spared;
    text.remove_prefix(spared);
    if (text.empty()) return to;
    const auto byte = static_cast<unsigned char>(text.front());
    *to++ = '%';
    *to++ = digits[byte >> 4];
    *to++ = digits[byte & 15];
    text.remove_prefix(1);
  }
}

std::string escapedSparingly(std::string_view text) {
  std::string into(text.size() * kLongestEscape + kEscapeSlack, '\0');
  into.resize(static_cast<std::size_t>(writeSparingly(into.data(), text) - into.data()));
  return into;
}

void addPair(std::string& record, std::string_view name, std::string_view value) {
  if (!record.empty()) record += '&';
  record.append(escapedSparingly(name)).append("=").append(escapedSparingly(value));
}

}  // namespace zvtaskq
