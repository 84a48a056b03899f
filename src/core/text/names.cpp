#include "core/text/names.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string_view>

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestUsername = 32;
constexpr std::size_t kLongestDomain = 253;
constexpr std::size_t kLongestLabel = 63;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
bool isLower(char c) {
  return c >= 'a' && c <= 'z';
}
bool isUpper(char c) {
  return c >= 'A' && c <= 'Z';
}

bool isLabel(std::string_view label) {
  const auto fits = [](char c) { return isDigit(c) || isLower(c) || isUpper(c) || c == '-'; };
  return !label.empty() && label.size() <= kLongestLabel && label.front() != '-' && label.back() != '-' &&
         std::all_of(label.begin(), label.end(), fits);
}

}  // namespace

int isValidIPv4(const char* text) {
  in_addr address{};
  return text != nullptr && ::inet_pton(AF_INET, text, &address) == 1 ? 1 : 0;
}

int isValidIPv6(const char* text) {
  in6_addr address{};
  return text != nullptr && ::inet_pton(AF_INET6, text, &address) == 1 ? 1 : 0;
}

int isValidIP(const char* text) {
  return isValidIPv4(text) || isValidIPv6(text) ? 1 : 0;
}

int isValidUsername(const char* name, int maxLength, int allowUpperCase, int allowNumeric) {
  const std::string_view text = name == nullptr ? std::string_view() : std::string_view(name);
  const std::size_t longest = maxLength > 0 ? static_cast<std::size_t>(maxLength) : kLongestUsername;
  const auto letter = [&](char c) { return isLower(c) || (allowUpperCase && isUpper(c)); };
  const auto fits = [&](char c) { return letter(c) || isDigit(c) || c == '-' || c == '_'; };
  if (text.empty() || text.size() > longest) return 0;
  const bool begins = letter(text.front()) || (allowNumeric && isDigit(text.front()));
  return begins && std::all_of(text.begin(), text.end(), fits) ? 1 : 0;
}

int isValidDomain(const char* name) {
  std::string_view rest = name == nullptr ? std::string_view() : std::string_view(name);
  if (rest.size() > kLongestDomain || rest.find('.') == std::string_view::npos) return 0;
  while (true) {
    const std::size_t dot = rest.find('.');
    const std::string_view label = rest.substr(0, dot);
    if (!isLabel(label)) return 0;
    if (dot == std::string_view::npos) return std::all_of(label.begin(), label.end(), isDigit) ? 0 : 1;
    rest.remove_prefix(dot + 1);
  }
}

}  // namespace zvtaskq
