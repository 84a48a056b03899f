// A server's own check of its configuration, as one call.
#pragma once

#include <string>

#include "core/process/child.h"
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

}  // namespace zvtaskq
