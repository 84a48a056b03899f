// What a web server itself says of its configuration, before it gets it.
#pragma once

#include <string>
#include <vector>

#include "services/rewrite/ask_server.h"
#include "services/rewrite/candidate.h"
#include "services/web/web_data.h"

namespace zvtaskq {

/// Lets the server check its whole configuration as it would be with these files in place of others, which have to be
/// there. The files are seen so by the check alone: it runs with a view of the file system of its own. Called as root.
Verdict checkServer(WebServer server, const std::vector<StandIn>& files, std::string& words);

}  // namespace zvtaskq
