// Serial numbers of zones, "YYYYMMDDnn".
#pragma once

#include <ctime>

namespace zvtaskq {

/// The serial after `last` (0 for a zone that is new) at a time: of the day's when that is higher, else the next
/// number. It never falls, whatever the clock says and whoever chose the last; after the highest number there is it
/// begins anew, as the name servers' way of counting allows.
unsigned long serialAfter(unsigned long last, std::time_t now);

}  // namespace zvtaskq
