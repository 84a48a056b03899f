// Writing the web servers' configuration of all accounts, or of one, from the data of the accounts.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// Writes what has changed for the servers that the settings name, and queues "httpd"/"restart", also when it failed;
/// what a server's own check refuses is left out, which the administrators are told. With an account its files alone:
/// they go when there is no such account or it has no site any more. 0 with the reason in `result` when nothing could
/// be put in place for one of the servers. May be called under any identity, which is the same afterwards.
[[nodiscard]] int rewriteWebServers(const char* account, Text& result);

}  // namespace zvtaskq
