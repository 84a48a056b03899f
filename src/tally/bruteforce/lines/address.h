// The one spelling of an address by which failures are counted.
#pragma once

#include <string>
#include <string_view>

namespace zvtaskq {

/// The address in the form that inet_ntop prints, without the brackets or the zone that it may be written with; an IPv4
/// address mapped into IPv6 becomes the IPv4 address. Empty for what is no address.
std::string cleanAddress(std::string_view text);

}  // namespace zvtaskq
