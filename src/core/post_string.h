// The URL-encoded form of names and values, both ways.
#pragma once

#include <cstddef>
#include <string_view>

namespace zvtaskq {

/// Decodes a text in place: "%41" becomes "A" (characters that are no hexadecimal digits give a space), and "+" a
/// space unless `keepPlus`. A byte that decodes to NUL ends the text. Returns the new length.
std::size_t fixPostString(char* text, int keepPlus);

/// A name or a value, decoded where it stood, with a terminator.
struct PostPart {
  char* text;
  std::size_t length;
  /// The character that the encoded text ended with: '=', '&', or a terminator.
  char endedBy;
};
/// The name at `at`, which goes up to the next "=", and the value, up to the next "&". `at` moves behind the character
/// that ended it, or stays at the terminator.
PostPart takePostName(char*& at, int keepPlus);
PostPart takePostValue(char*& at, int keepPlus);

/// The byte that the two characters at `p` (one, when the second is the terminator) name in hexadecimal, in either
/// case; a space when they do not.
char getCharFromHex(const char* p);

/// Bytes that a byte takes at most when it is escaped, and bytes behind the last that are written to besides.
inline constexpr std::size_t kLongestEscape = 3;
inline constexpr std::size_t kEscapeSlack = 4;
/// Writes `text` at `to`, every byte escaped that is not an ASCII letter, a control character other than TAB, LF
/// and CR, or above 0x7F. Digits are escaped too. Returns the end of what was written, which has no terminator.
char* writeEscaped(char* to, std::string_view text);

}  // namespace zvtaskq
