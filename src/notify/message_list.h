// What an account is told of: its "tickets.list", a pair for every ticket.
#pragma once

#include <string>
#include <vector>

#include "core/record/config_file.h"
#include "core/text/text.h"

namespace zvtaskq {

/// Adds the ticket, as a new one of that type, to the list in `path`, which has to be there. The list is locked from
/// reading to writing, so that what the panel's other programs change meanwhile is kept, and a link in its place is
/// refused. 0 with the documented error-log line and, for the recipient named, the reason in `result`. May be called
/// under any identity; leaves nobody.
[[nodiscard]] int announceTicket(const char* path, int ticket, const char* type, const char* recipient, Text& result);

/// Reads the list; one that is not there is empty. 0 with the reason in its result, for a link in its place as well.
/// May be called under any identity; leaves nobody.
[[nodiscard]] int readMessageList(const char* path, ConfigFile& list);

/// Takes the tickets of these names out of the list, which stays locked from reading to writing. 0 with an error-log
/// line. May be called under any identity; leaves nobody.
[[nodiscard]] int removeFromList(const char* path, const std::vector<std::string>& names);

}  // namespace zvtaskq
