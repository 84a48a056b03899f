// What ProFTPD itself says of its configuration, before it gets it.
#pragma once

#include <string>
#include <vector>

#include "services/rewrite/ask_server.h"

namespace zvtaskq {

/// Lets ProFTPD check its whole configuration (`ftpconfig`, or where it looks by itself) with these files in place of
/// others, as it alone sees. It ends well whatever it says of a file that is included, and leaves the rest of that file
/// out: what it calls fatal counts. Called as root.
Verdict checkProftpd(const std::vector<StandIn>& files, std::string& words);

}  // namespace zvtaskq
