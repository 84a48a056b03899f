// The URL-encoded form of names and values, both ways.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zvtaskq {

/// Decodes a text in place: "%41" becomes "A" (characters that are no hexadecimal digits give a space), and "+" a
/// space unless `keepPlus`. A byte that decodes to NUL ends the text. Returns the new length.
std::size_t fixPostString(char* text, int keepPlus);

/// A name or a value, decoded and terminated.
struct PostPart {
  char* text;
  std::uint32_t length;
  /// The encoded text ended here; no "=" or "&" stands behind the part.
  bool isLast;
};

/// Cuts an encoded text into its names and values, and decodes them on the way.
class PostReader {
 public:
  /// Reads up to a NUL or the end of `text`, which is shorter than 4 GB. The parts go to `room`, which has one byte
  /// more than the text and is another place than it.
  PostReader(std::string_view text, char* room, int keepPlus);

  /// The name, which goes up to the next "=", and the value behind it, up to the next "&".
  PostPart takeName();
  PostPart takeValue();
  /// All that is left.
  PostPart takeRest();

 private:
  template <char stop>
  PostPart take();

  const char* from_;
  const char* end_;
  char* to_;
  /// What becomes a space; '%', which has a meaning anyway, when nothing does.
  char plus_;
};

/// The byte that the two characters at `p` (one, when the second is the terminator) name in hexadecimal, in either
/// case; a space when they do not.
char getCharFromHex(const char* p);

/// Bytes that a byte takes at most when it is escaped, and bytes behind the last that are written to besides.
inline constexpr std::size_t kLongestEscape = 3;
inline constexpr std::size_t kEscapeSlack = 4;
/// Writes `text` at `to`, every byte escaped that is not an ASCII letter, a control character other than TAB, LF
/// and CR, or above 0x7F. Digits are escaped too. Returns the end of what was written, which has no terminator.
char* writeEscaped(char* to, std::string_view text);
/// The same as short as a reader can still decode it, for texts of which there are very many: a space becomes "+", and
/// only "%", "&", "+", "=", control characters and what is not ASCII are escaped.
char* writeSparingly(char* to, std::string_view text);
std::string escapedSparingly(std::string_view text);
/// Adds "name=value", escaped sparingly, to an encoded record, behind "&" when it is not the first pair.
void addPair(std::string& record, std::string_view name, std::string_view value);

}  // namespace zvtaskq
