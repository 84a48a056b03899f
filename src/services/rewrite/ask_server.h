// A server's own check of its configuration, as one call.
#pragma once

#include <string>
#include <vector>

#include "core/process/child.h"
#include "core/text/text.h"
#include "services/rewrite/candidate.h"

namespace zvtaskq {

/// The exit status by which a plan's own script says that the check could not be asked at all; no server's check ends
/// so.
inline constexpr int kCannotAsk = 99;

/// Runs the check that `plan` names for five minutes at most, and collects what it prints as far as the plan's limit.
/// `words` is left alone when all is well; it is what was printed when the check complains (`bad`), and says that the
/// program does not end or cannot be run, with what was printed below, when there is no judgment (`unknown`). The
/// plan's identity is the caller's choice; `program` is what the words call it. Called as root.
Verdict askServer(ChildPlan plan, const std::string& program, std::string& words);

/// A file that a server is to find in the place of another, which has to be there.
struct StandIn {
  std::string file;
  std::string place;
};

/// The plan of a program that sees these files in place of others, and it alone: it runs as root with a view of the
/// file system of its own, may open as many files as a web server, and keeps 64 KB of what it prints.
ChildPlan planSeeing(const std::vector<StandIn>& files, const std::string& program, std::vector<std::string> arguments);

/// Makes a file that a server's configuration includes, root's and readable by all, when there is none. 0 with why in
/// `result`. Called as root.
[[nodiscard]] int makeIfMissing(const std::string& path, const std::string& text, Text& result);

}  // namespace zvtaskq
