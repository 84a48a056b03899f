// Where tickets stand: `ticketsdir`/<thousand>/<number>, both names with at least three digits, so that no folder below
// `ticketsdir` ever holds more than a thousand others. Everything here works as the panel's user, which is the identity
// of the moment, and follows no link below `ticketsdir`.
#pragma once

#include <string>
#include <vector>

#include "core/sys/sys.h"

namespace zvtaskq {

/// The path of a ticket's folder.
std::string ticketFolder(int number);
/// The path of a file of a message in a ticket, e.g. messageFile(41, 1, "msg") ends with "/041/001.msg".
std::string messageFile(int ticket, int message, const char* ending);

enum class Claim { made, taken, failed };
/// Makes the folder of a ticket, mode 0700. `taken`: it is there, or something else of that name is. `failed`: errno
/// says why.
Claim claimTicketFolder(int number);
/// Opens the folder of a ticket, which is made when it is not there; not open, with errno, when that cannot be or it is
/// not the panel user's own.
Descriptor openTicketFolder(int number);
/// The highest number that has a folder, 0 for none; -1 with errno when `ticketsdir` cannot be read.
int highestTicket();
/// The first message number above all that have a file in the open folder of a ticket.
int nextMessage(int folder);

/// Adds the numbers of all tickets that have a folder, in rising order. 0 with errno when `ticketsdir` cannot be read.
[[nodiscard]] int listTickets(std::vector<int>& numbers);

/// A ticket as it is stored.
struct StoredTicket {
  /// Not open when there is none.
  Descriptor folder;
  /// When the last of its files was changed, or when it has none, the folder itself; seconds since the epoch.
  long long last = 0;
  /// What stands in it, the last changed at the end.
  std::vector<std::string> names;
};
StoredTicket lookAtTicket(int number);
/// Removes a ticket that has been looked at: its files, the last changed at the end, so that one whose removal is cut
/// short is still as old as it was, and then its folder. 0 with errno; ENOTEMPTY when something else stands in it.
[[nodiscard]] int removeTicket(int number, const StoredTicket& ticket);

}  // namespace zvtaskq
