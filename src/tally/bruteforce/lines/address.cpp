#include "tally/bruteforce/lines/address.h"

#include <arpa/inet.h>

#include <array>
#include <cstring>

namespace zvtaskq {

namespace {

/// Longer than any address with brackets and zone that is worth a look.
constexpr std::size_t kLongestAddress = 80;
constexpr unsigned char kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

std::string_view withoutWrapping(std::string_view text) {
  if (text.size() > 2 && text.front() == '[' && text.back() == ']') text = text.substr(1, text.size() - 2);
  return text.find(':') == std::string_view::npos ? text : text.substr(0, text.find('%'));
}

std::string printed(int family, const void* address) {
  std::array<char, INET6_ADDRSTRLEN> into;
  const char* text = ::inet_ntop(family, address, into.data(), into.size());
  return text == nullptr ? std::string() : std::string(text);
}

}  // namespace

std::string cleanAddress(std::string_view text) {
  text = withoutWrapping(text);
  if (text.empty() || text.size() > kLongestAddress || text.find('\0') != std::string_view::npos) return {};
  std::array<char, kLongestAddress + 1> terminated{};
  std::memcpy(terminated.data(), text.data(), text.size());
  in_addr four{};
  if (::inet_pton(AF_INET, terminated.data(), &four) == 1) return printed(AF_INET, &four);
  in6_addr six{};
  if (::inet_pton(AF_INET6, terminated.data(), &six) != 1) return {};
  if (std::memcmp(&six, kMappedPrefix, sizeof kMappedPrefix) != 0) return printed(AF_INET6, &six);
  std::memcpy(&four, six.s6_addr + sizeof kMappedPrefix, sizeof four);
  return printed(AF_INET, &four);
}

}  // namespace zvtaskq
