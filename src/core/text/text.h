// Owned texts: creating, comparing, joining, trimming.
//
// A text is a null-terminated byte string on the heap, or null. Interfaces take `const char*`; whoever keeps a
// text keeps it in a `Text`. The free functions with char pointers are the vocabulary the rest is built from.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zvtaskq {

/// A copy of `text` that the caller owns; null for null.
char* newString(const char* text);
/// A copy of `text`, which may hold no null byte that the reader should see. The caller owns it.
char* newString(std::string_view text);
/// `first` followed by `second`; a null counts as empty. The caller owns it.
char* newString(const char* first, const char* second);
/// The concatenation of `count` texts (each `const char*`, null counts as empty). The caller owns it.
char* newString(int count, ...);
/// A zero-filled buffer of at least `size` bytes that holds a copy of `text`. The caller owns it.
char* newString(const char* text, std::size_t size);
/// The part of `text` before the first `stop`, the whole text when there is none; null for null. The caller owns it.
char* newStringUntil(const char* text, char stop);

/// Frees each text and sets it to null; a null stays null.
void delString(char*& text);
template <class... More>
void delString(char*& first, char*& second, More&... more) {
  static_assert(sizeof...(More) <= 5, "two to seven texts");
  delString(first);
  delString(second, more...);
}

/// The system's one string order: byte by byte as signed characters, a shorter text before a longer one that it
/// begins, null and empty texts after every other (two nulls, two empties, or one of each kind are equal). Returns
/// a negative number, 0 or a positive one.
int strcomp(const char* a, const char* b);
int strcomp(std::string_view a, std::string_view b);

/// The first `c` in `text`, or its terminator. `text` is not null.
const char* findChar(const char* text, char c);
/// The first character of `text` that is one of `set`, or the terminator. Neither is null.
const char* findChars(const char* text, const char* set);
/// The last `c` in `text`, or null when there is none. `text` is not null.
const char* findCharFromEnd(const char* text, char c);
/// The last `c` in `text` that stands before `end` (a place in `text`), or null when there is none.
const char* findCharBeforePtr(const char* text, const char* end, char c);

/// The first character of `text` that is neither space nor tab; null for null.
const char* trim(const char* text);
/// The part of `text` between the spaces, tabs and carriage returns at its ends.
std::string_view trimmed(std::string_view text);
/// Cuts spaces and tabs off the end of `text`, in place.
void trim_end(char* text);
/// Cuts one carriage return off the end of `text`, in place.
void trimBackSlashR(char* text);
/// 1 when the line's first character is "#" or a space; 0 for null and empty.
int commentLine(const char* line);
/// When `line` begins with `name`, copies everything after the name and one further character (the separator) into
/// `out` and returns 1; otherwise 0 and `out` is left alone.
[[nodiscard]] int getParam(const char* line, const char* name, std::string& out);

/// Re-allocates the owned `buffer` to `size` bytes, keeping what fits. 0 (buffer untouched) when memory is short.
[[nodiscard]] int growBuffer(std::size_t size, char*& buffer);
/// Doubles the owned `buffer` of `size` bytes and `size` with it. 0 (nothing changed) when memory is short.
[[nodiscard]] int newBuffer(std::size_t& size, char*& buffer);

/// Writes `value` as the containers keep numbers: by `format`, or with none "%.0f" above 999999.0, "%f" below 0.0001,
/// else "%g". `size` bytes of `into` at most, terminator included.
void formatNumber(char* into, std::size_t size, double value, const char* format);

/// `text` without anything that a line of a file or of a log could be forged with: control characters become
/// "\xNN". Null counts as empty.
std::string printable(std::string_view text);

/// The move-only holder of a nullable text.
class Text {
 public:
  Text() = default;
  Text(Text&& other) noexcept : text_(other.release()) {}
  Text& operator=(Text&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  Text& operator=(const char* text) {
    reset(newString(text));
    return *this;
  }
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  ~Text() { delString(text_); }

  /// A copy of `text`; null stays null.
  static Text copyOf(const char* text) { return adopt(newString(text)); }
  static Text copyOf(std::string_view text) { return adopt(newString(text)); }
  /// Takes over a text made by `newString`.
  static Text adopt(char* text) {
    Text owner;
    owner.text_ = text;
    return owner;
  }
  /// Hands the text over to the caller and keeps null.
  [[nodiscard]] char* release() {
    char* text = text_;
    text_ = nullptr;
    return text;
  }
  void clear() { delString(text_); }

  operator const char*() const& { return text_; }
  operator const char*() const&& = delete;
  const char* get() const& { return text_; }
  const char* get() const&& = delete;
  /// The text, null read as empty.
  std::string_view view() const { return text_ == nullptr ? std::string_view() : std::string_view(text_); }
  const char* orEmpty() const& { return text_ == nullptr ? "" : text_; }
  bool isNull() const { return text_ == nullptr; }
  bool isEmpty() const { return text_ == nullptr || *text_ == '\0'; }

  /// Appends, re-allocating; a null text begins empty.
  void append(std::string_view more);

 private:
  void reset(char* text) {
    delString(text_);
    text_ = text;
  }
  char* text_ = nullptr;
};

namespace text_detail {
inline std::string_view part(const char* text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}
inline std::string_view part(std::string_view text) {
  return text;
}
inline std::string_view part(const std::string& text) {
  return text;
}
inline std::string_view part(const Text& text) {
  return text.view();
}
}  // namespace text_detail

/// All parts (texts, nulls counting as empty) as one string.
template <class... Parts>
std::string joined(const Parts&... parts) {
  std::string all;
  all.reserve((text_detail::part(parts).size() + ... + 0));
  (all.append(text_detail::part(parts)), ...);
  return all;
}

/// The words of a list as one string, with `between` between them.
template <class Words>
std::string joinedWith(std::string_view between, const Words& words) {
  std::string all;
  bool isFirst = true;
  for (const auto& word : words) {
    if (!isFirst) all.append(between);
    all.append(text_detail::part(word));
    isFirst = false;
  }
  return all;
}

/// Appends one to fourteen texts to an owned text, re-allocating it; nulls count as empty.
template <class... Parts>
void stringCat(Text& dst, const Parts&... parts) {
  static_assert(sizeof...(Parts) >= 1 && sizeof...(Parts) <= 14, "one to fourteen texts");
  dst.append(joined(parts...));
}

/// Appends one to fifteen texts and then "<br>\n" to a result text.
template <class... Parts>
void addResult(Text& dst, const Parts&... parts) {
  static_assert(sizeof...(Parts) >= 1 && sizeof...(Parts) <= 15, "one to fifteen texts");
  dst.append(joined(parts..., "<br>\n"));
}

/// Appends a line to a result text and gives 0: `return fail(result, "Unable to open ", path, " for reading.")`.
template <class... Parts>
[[nodiscard]] int fail(Text& result, const Parts&... parts) {
  addResult(result, parts...);
  return 0;
}

/// The text itself. The operations that use it (renameFile, createPath, pushOnTaskQueue) clear it at entry and append
/// their messages, each followed by "<br>\n".
Text& systemResult();

/// What the last of these operations said; never null. Valid until the next of them.
const char* getSysResult();

}  // namespace zvtaskq
