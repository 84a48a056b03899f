// What a web server itself says of its configuration, before it gets it.
#pragma once

#include <string>
#include <vector>

#include "services/rewrite/candidate.h"
#include "services/web/web_data.h"

namespace zvtaskq {

/// A file that the server is to find in the place of another.
struct StandIn {
  std::string file;
  std::string place;
};

/// Lets the server check its whole configuration as it would be with these files in place of others, which have to be
/// there. The files are seen so by the check alone: it runs with a view of the file system of its own. Called as root.
Verdict checkServer(WebServer server, const std::vector<StandIn>& files, std::string& words);

/// Makes a file that the server's configuration includes, root's and readable by all, when there is none. 0 with why in
/// `result`. Called as root.
[[nodiscard]] int makeIfMissing(const std::string& path, const std::string& text, Text& result);

}  // namespace zvtaskq
