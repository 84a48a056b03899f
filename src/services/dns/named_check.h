// What the name server itself says of zones, before it gets them.
#pragma once

#include "services/rewrite/candidate.h"

namespace zvtaskq {

/// Asks `named-checkconf -z` about the zones in question, all in one call; with `named_checkzone` that program about
/// each of them too. Both run as the name server's user. A check for `Rewrite`.
Verdict checkZones(const Trial& trial, std::string& words);

}  // namespace zvtaskq
