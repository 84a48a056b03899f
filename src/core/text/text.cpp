#include "core/text/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zvtaskq {

namespace {

char* allocated(std::size_t size) {
  char* text = static_cast<char*>(std::malloc(size));
  // A root program that cannot hold a file name has no safe way on; the queue's ".tmp" keeps its lines.
  if (text == nullptr) std::abort();
  return text;
}

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

bool isControl(char c) {
  return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f;
}

}  // namespace

char* newString(std::string_view text) {
  char* copy = allocated(text.size() + 1);
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

char* newString(const char* text) {
  return text == nullptr ? nullptr : newString(std::string_view(text));
}

char* newString(const char* first, const char* second) {
  return newString(std::string_view(joined(first, second)));
}

char* newString(int count, ...) {
  std::string all;
  va_list texts;
  va_start(texts, count);
  for (int i = 0; i < count; ++i) {
    const char* text = va_arg(texts, const char*);
    if (text != nullptr) all += text;
  }
  va_end(texts);
  return newString(std::string_view(all));
}

char* newString(const char* text, std::size_t size) {
  const std::string_view source = text == nullptr ? std::string_view() : std::string_view(text);
  const std::size_t room = size > source.size() + 1 ? size : source.size() + 1;
  char* buffer = allocated(room);
  std::memset(buffer, 0, room);
  if (!source.empty()) std::memcpy(buffer, source.data(), source.size());
  return buffer;
}

char* newStringUntil(const char* text, char stop) {
  if (text == nullptr) return nullptr;
  return newString(std::string_view(text, static_cast<std::size_t>(findChar(text, stop) - text)));
}

void delString(char*& text) {
  std::free(text);
  text = nullptr;
}

int strcomp(std::string_view a, std::string_view b) {
  if (a.empty() || b.empty()) return static_cast<int>(a.empty()) - static_cast<int>(b.empty());
  const std::size_t shared = a.size() < b.size() ? a.size() : b.size();
  for (std::size_t i = 0; i < shared; ++i) {
    if (a[i] != b[i]) return static_cast<signed char>(a[i]) < static_cast<signed char>(b[i]) ? -1 : 1;
  }
  return static_cast<int>(a.size() > b.size()) - static_cast<int>(a.size() < b.size());
}

int strcomp(const char* a, const char* b) {
  return strcomp(text_detail::part(a), text_detail::part(b));
}

const char* findChar(const char* text, char c) {
  const char* found = std::strchr(text, c);
  return found == nullptr ? text + std::strlen(text) : found;
}

const char* findChars(const char* text, const char* set) {
  return text + std::strcspn(text, set);
}

const char* findCharFromEnd(const char* text, char c) {
  return std::strrchr(text, c);
}

const char* findCharBeforePtr(const char* text, const char* end, char c) {
  return static_cast<const char*>(::memrchr(text, c, static_cast<std::size_t>(end - text)));
}

const char* trim(const char* text) {
  if (text == nullptr) return nullptr;
  while (isBlank(*text)) ++text;
  return text;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

void trim_end(char* text) {
  if (text == nullptr) return;
  char* end = text + std::strlen(text);
  while (end > text && isBlank(end[-1])) --end;
  *end = '\0';
}

void trimBackSlashR(char* text) {
  if (text == nullptr) return;
  const std::size_t length = std::strlen(text);
  if (length > 0 && text[length - 1] == '\r') text[length - 1] = '\0';
}

int commentLine(const char* line) {
  return line != nullptr && (*line == '#' || *line == ' ') ? 1 : 0;
}

int getParam(const char* line, const char* name, std::string& out) {
  const std::size_t length = std::strlen(name);
  if (line == nullptr || std::strncmp(line, name, length) != 0) return 0;
  out = line[length] == '\0' ? "" : line + length + 1;
  return 1;
}

int growBuffer(std::size_t size, char*& buffer) {
  char* grown = static_cast<char*>(std::realloc(buffer, size));
  if (grown == nullptr) return 0;
  buffer = grown;
  return 1;
}

int newBuffer(std::size_t& size, char*& buffer) {
  if (!growBuffer(size * 2, buffer)) return 0;
  size *= 2;
  return 1;
}

void formatNumber(char* into, std::size_t size, double value, const char* format) {
  const char* chosen = format;
  if (chosen == nullptr) chosen = value > 999999.0 ? "%.0f" : value < 0.0001 ? "%f" : "%g";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(into, size, chosen, value);
#pragma GCC diagnostic pop
}

std::string printable(std::string_view text) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string clean;
  clean.reserve(text.size());
  for (const char c : text) {
    if (!isControl(c)) {
      clean += c;
      continue;
    }
    clean += "\\x";
    clean += digits[static_cast<unsigned char>(c) >> 4];
    clean += digits[static_cast<unsigned char>(c) & 15];
  }
  return clean;
}

void Text::append(std::string_view more) {
  const std::size_t had = view().size();
  char* grown = static_cast<char*>(std::realloc(text_, had + more.size() + 1));
  if (grown == nullptr) std::abort();
  if (!more.empty()) std::memcpy(grown + had, more.data(), more.size());
  grown[had + more.size()] = '\0';
  text_ = grown;
}

Text& systemResult() {
  static Text result;
  return result;
}

const char* getSysResult() {
  return systemResult().orEmpty();
}

}  // namespace zvtaskq
