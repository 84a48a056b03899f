// The URL-encoded form of names and values, both ways.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zvtaskq {

/// Decodes a text in place: "%41" becomes "A" (characters that are no hexadecimal digits give a space), and "+" a
/// space unless `keepPlus`. A byte that decodes to NUL ends the text. Returns the new length.
std::size_t fixPostString(char* text, int keepPlus);
/// The same for `length` bytes at `text`, which must have room for a terminator behind them.
std::size_t fixPostString(char* text, std::size_t length, int keepPlus);

/// The byte that the two characters at `p` (one, when the second is the terminator) name in hexadecimal, in either
/// case; a space when they do not.
char getCharFromHex(const char* p);

/// Appends `text` to `out`, every byte escaped that is not an ASCII letter, a control character other than TAB, LF
/// and CR, or above 0x7F. Digits are escaped too.
void appendEscaped(std::string& out, std::string_view text);

}  // namespace zvtaskq
