// Whether the server goes by the right name.
#pragma once

#include <string>

namespace zvtaskq {

/// Tells the administrators when the host name cannot be found, is not the `servername` of the configuration, does not
/// resolve, or resolves to the loopback. May take as long as both look-ups may (core/panel/system_info.h). Leaves the
/// process at nobody.
void checkHostname();

/// What the check found out.
struct HostNameFacts {
  /// What the system calls itself; empty when it does not say.
  std::string hostname;
  /// What the panel was told.
  std::string servername;
  /// What `hostname` resolves to; empty when it does not.
  std::string address;
  /// The server's own main address; empty when unknown. Asked for only when `address` is the loopback.
  std::string (*serverAddress)();
};

/// Everything that is wrong, for people; empty when nothing is.
std::string hostNameFindings(const HostNameFacts& facts);

}  // namespace zvtaskq
