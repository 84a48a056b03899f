// The name server's zone files.
#pragma once

#include <string>

namespace zvtaskq {

/// The zone file of a domain, "<zone folder>/<domain>.db": in "/var/named" where that stands, else in "/etc/bind".
std::string zoneFileOf(const char* domain);
/// Reads it whole. 0 when it cannot be opened or read. Runs under the identity it finds.
[[nodiscard]] int readZoneFile(const char* domain, std::string& text);

}  // namespace zvtaskq
