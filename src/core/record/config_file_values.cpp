// The typed getters and setters of a record.
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/record/config_file.h"

namespace zvtaskq {

namespace {

template <class T>
int scanned(const char* value, const char* format, T* into) {
  T read{};
  if (value == nullptr || std::sscanf(value, format, &read) != 1) return 0;
  *into = read;
  return 1;
}

/// Strips the blanks that `cut` finds at one end of a text that holds `length` bytes.
void cutFront(char*& text, std::uint32_t& length) {
  while (length > 0 && (*text == ' ' || *text == '\t')) {
    ++text;
    --length;
  }
}

void cutEnd(char*& text, std::uint32_t& length) {
  while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t')) --length;
  if (text != nullptr) text[length] = '\0';
}

}  // namespace

const char* ConfigFile::getValue(const char* name) const {
  const Pair* pair = find(name);
  return pair == nullptr ? nullptr : pair->value;
}

const char* ConfigFile::getOrEmpty(const char* name) const {
  const char* value = getValue(name);
  return value == nullptr ? "" : value;
}

int ConfigFile::getValue(const char* name, char* into, int length) const {
  const Pair* pair = find(name);
  if (pair == nullptr) return 0;
  // As documented, a value that fills the room has no terminator.
  std::size_t i = 0;
  const auto room = static_cast<std::size_t>(length < 0 ? 0 : length);
  for (; i < room && i < pair->valueLength; ++i) into[i] = pair->value[i];
  for (; i < room; ++i) into[i] = '\0';
  return 1;
}

int ConfigFile::getValue(const char* name, int* into) const {
  return scanned(getValue(name), "%d", into);
}
int ConfigFile::getValue(const char* name, char* into) const {
  return scanned(getValue(name), "%c", into);
}
int ConfigFile::getValue(const char* name, long long* into) const {
  return scanned(getValue(name), "%lld", into);
}
int ConfigFile::getValue(const char* name, unsigned long long* into) const {
  return scanned(getValue(name), "%llu", into);
}
int ConfigFile::getValue(const char* name, long* into) const {
  return scanned(getValue(name), "%ld", into);
}
int ConfigFile::getValue(const char* name, unsigned long* into) const {
  return scanned(getValue(name), "%lu", into);
}
int ConfigFile::getValue(const char* name, float* into) const {
  return scanned(getValue(name), "%f", into);
}
int ConfigFile::getValue(const char* name, double* into) const {
  return scanned(getValue(name), "%lf", into);
}

int ConfigFile::getValue(const char* name, bool* into) const {
  int number = *into ? 1 : 0;
  const int read = getValue(name, &number);
  *into = number != 0;
  return read;
}

const char* ConfigFile::operator[](int n) const {
  return getValue(std::to_string(n).c_str());
}

int ConfigFile::getValueAt(long long i, int* into) const {
  const char* value = getValueAt(i);
  return value == nullptr || *value == '\0' ? 0 : scanned(value, "%d", into);
}

int ConfigFile::setParam(const char* name, char* value, bool copy) {
  if (copy) return setParam(name, value);
  const Text owned = Text::adopt(value);
  return setParam(name, owned.get());
}

int ConfigFile::setFormatted(const char* name, const char* format, ...) {
  std::array<char, 64> text{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return setParam(name, static_cast<const char*>(text.data()));
}

int ConfigFile::setParam(const char* name, int value) {
  return setFormatted(name, "%d", value);
}
int ConfigFile::setParam(const char* name, long value) {
  return setFormatted(name, "%ld", value);
}
int ConfigFile::setParam(const char* name, unsigned long value) {
  return setFormatted(name, "%ld", static_cast<long>(value));
}
int ConfigFile::setParam(const char* name, long long value) {
  return setFormatted(name, "%lld", value);
}
int ConfigFile::setParam(const char* name, unsigned long long value) {
  return setFormatted(name, "%lld", static_cast<long long>(value));
}
int ConfigFile::setParam(const char* name, char value) {
  return setFormatted(name, "%c", value);
}
int ConfigFile::setParam(const char* name, float value) {
  return setFormatted(name, "%f", static_cast<double>(value));
}
int ConfigFile::setParam(const char* name, bool value) {
  return setParam(name, value ? "1" : "0");
}

int ConfigFile::setParam(const char* name, double value, const char* format) {
  std::array<char, 64> text{};
  formatNumber(text.data(), text.size(), value, format);
  return setParam(name, static_cast<const char*>(text.data()));
}

int ConfigFile::setParam(long long name, const char* value) {
  return setParam(std::to_string(name).c_str(), value);
}
int ConfigFile::setParam(long long name, int value) {
  return setParam(std::to_string(name).c_str(), value);
}

int ConfigFile::vsetParam(const char* name, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char* text = nullptr;
  const int length = ::vasprintf(&text, format, arguments);
  va_end(arguments);
  return length < 0 ? 0 : setParam(name, text, false);
}

int ConfigFile::add_count(const char* name) {
  unsigned long long count = 0;
  static_cast<void>(getValue(name, &count));
  return setParam(name, count + 1);
}

int ConfigFile::insertParam(const char* name, int value) {
  return insertParam(name, std::to_string(value).c_str());
}

int ConfigFile::insertParam(long long name, const char* value, int width) {
  std::array<char, 64> text{};
  if (width >= 1) {
    std::snprintf(text.data(), text.size(), "%0*lld", width, name);
  } else {
    std::snprintf(text.data(), text.size(), "%lld", name);
  }
  return insertParam(text.data(), value);
}

void ConfigFile::trimNameFront() {
  trimNames(cutFront);
}
void ConfigFile::trimNameEnd() {
  trimNames(cutEnd);
}

void ConfigFile::trimNames(void (*cut)(char*&, std::uint32_t&)) {
  for (long long i = 0; i < size(); ++i) {
    Pair& pair = pairs_[i];
    cut(pair.name, pair.nameLength);
    // A name is never empty: what was all blanks names nothing.
    if (pair.nameLength == 0) pair = Pair{};
  }
  unsettled_ = true;
  shift_down_and_count();
}

void ConfigFile::trimValueFront() {
  for (long long i = 0; i < size(); ++i) {
    Pair& pair = pairs_[i];
    const char* before = pair.value;
    cutFront(pair.value, pair.valueLength);
    pair.valueRoom -= static_cast<std::uint32_t>(pair.value - before);
  }
}

void ConfigFile::trimValueEnd() {
  for (long long i = 0; i < size(); ++i) cutEnd(pairs_[i].value, pairs_[i].valueLength);
}

}  // namespace zvtaskq
