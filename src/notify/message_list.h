// What an account is told of: its "tickets.list", a pair for every ticket.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// Adds the ticket, as a new one of that type, to the list in `path`, which has to be there. The list is locked from
/// reading to writing, so that what the panel's other programs change meanwhile is kept, and a link in its place is
/// refused. 0 with the documented error-log line and, for the recipient named, the reason in `result`. May be called
/// under any identity; leaves nobody.
[[nodiscard]] int announceTicket(const char* path, int ticket, const char* type, const char* recipient, Text& result);

}  // namespace zvtaskq
