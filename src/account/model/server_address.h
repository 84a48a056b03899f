// The address that the server itself is reached at.
#pragma once

#include <string>

namespace zvtaskq {

/// The server's main IPv4 address: the one of "ip.list" whose record has the status "server", else the address of the
/// network device `ethernet_dev`. Empty when there is neither.
std::string mainServerAddress();

}  // namespace zvtaskq
