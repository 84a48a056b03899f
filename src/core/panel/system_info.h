// What this machine says about itself. What asks a program or the network does so under a time limit; all work under
// any identity and leave it.
#pragma once

#include <string>
#include <vector>

namespace zvtaskq {

/// The command that is asked for the host name, as messages show it.
inline constexpr const char* kHostNameCommand = "/bin/hostname --fqdn";

/// What `kHostNameCommand` prints, up to its first line feed, at most 512 bytes; empty when it prints nothing, cannot
/// be run or takes longer than 10 seconds.
std::string getHostName();

/// The first IPv4 address that `host` resolves to, empty when it resolves to none within 15 seconds. Anything but a
/// host name or an address is not asked for.
std::string resolveIPv4(const char* host);

/// The host names that the name service holds for an IPv4 or IPv6 address, as the owner of the address wishes them:
/// only valid domain names, in lower case, at most 16. Empty when it is no address, and when there is no answer within
/// `seconds`.
std::vector<std::string> resolveAddress(const char* address, int seconds);

/// Whether the name service says within `seconds` that `host` has that very address, in whatever form it is written.
bool resolvesTo(const char* host, const char* address, int seconds);

/// The IPv4 address of a network device such as "eth0"; empty for null, an unknown device, and one without address.
std::string getDeviceAddress(const char* device);

/// The first `lines` lines of what is running, as `load_top_string` prints it (a command for the shell, run as root),
/// by default "top". Control characters are written as "\xNN". Empty when that prints nothing or takes longer than 10
/// seconds.
std::string getProcessListing(int lines);

/// The load averages of the last 1, 5 and 15 minutes. 0, with nothing set, when they cannot be read.
[[nodiscard]] int getLoadAverage(double& one, double& five, double& fifteen);

}  // namespace zvtaskq
