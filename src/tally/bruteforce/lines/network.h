// Single addresses, and ranges of them in CIDR form.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace zvtaskq {

/// An IPv6 address, or an IPv4 one in its IPv6 form.
using NetworkAddress = std::array<unsigned char, 16>;

/// An address, or all those that begin with the same bits.
struct Network {
  static constexpr int kAllBits = 128;
  NetworkAddress start{};
  bool isIPv4 = false;
  /// Bits of the IPv6 form.
  int prefix = kAllBits;
};

/// Clears all but the first `prefix` bits.
void mask(NetworkAddress& address, int prefix);

/// What an address or a CIDR range ("192.0.2.0/24", "2001:db8::/32") stands for; nothing for other texts.
std::optional<Network> readNetwork(std::string_view text);

}  // namespace zvtaskq
