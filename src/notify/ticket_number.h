// Numbers for new tickets. No number is given out twice, whatever happens to the counter.
#pragma once

namespace zvtaskq {

/// The file that counts, "next_ticket.number" in `admindir`: the next free number and a line feed.
inline constexpr const char* kTicketCounter = "next_ticket.number";

/// A number of its own for a new ticket, 1 or more, or -1 when there is none to be had. Its folder (see
/// ticket_folder.h) is made at once, if it can be: that is what keeps everybody else from the number, and not even a
/// counter that was emptied or put back gives one whose folder is there. May be called under any identity; leaves
/// nobody.
int takeTicketNumber();

/// The way without a counter: the first free number above all that have a folder or stand in the administrators'
/// message list; -1 when there is none. Works as the panel's user, which is the identity of the moment.
int last_restort_get_number();

}  // namespace zvtaskq
