#include "tally/bruteforce/lines/network.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <string>

namespace zvtaskq {

namespace {

constexpr int kMappedBits = 96;

bool readAddress(const std::string& text, Network& network) {
  constexpr NetworkAddress kMapped{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  network.start = kMapped;
  network.isIPv4 = ::inet_pton(AF_INET, text.c_str(), network.start.data() + kMappedBits / 8) == 1;
  if (network.isIPv4) return true;
  if (::inet_pton(AF_INET6, text.c_str(), network.start.data()) != 1) return false;
  network.isIPv4 = std::equal(kMapped.begin(), kMapped.begin() + kMappedBits / 8, network.start.begin());
  return true;
}

}  // namespace

void mask(NetworkAddress& address, int prefix) {
  for (int bit = 0; bit < Network::kAllBits; bit += 8) {
    const int kept = std::clamp(prefix - bit, 0, 8);
    auto& byte = address[static_cast<std::size_t>(bit / 8)];
    byte = static_cast<unsigned char>(byte & (0xFF00 >> kept));
  }
}

std::optional<Network> readNetwork(std::string_view text) {
  const std::size_t slash = text.find('/');
  Network network;
  if (!readAddress(std::string(text.substr(0, slash)), network)) return std::nullopt;
  if (slash == std::string_view::npos) return network;
  const char *bits = text.data() + slash + 1, *behind = text.data() + text.size();
  const auto [end, error] = std::from_chars(bits, behind, network.prefix);
  if (error != std::errc() || end != behind || network.prefix < 0 || network.prefix > Network::kAllBits)
    return std::nullopt;
  // "::ffff:192.0.2.0/120" is a range of IPv4 addresses too.
  if (network.isIPv4 && text.find(':') == std::string_view::npos) network.prefix += kMappedBits;
  if (network.prefix > Network::kAllBits) return std::nullopt;
  if (network.prefix < kMappedBits) network.isIPv4 = false;
  mask(network.start, network.prefix);
  return network;
}

}  // namespace zvtaskq
