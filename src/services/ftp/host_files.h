// ProFTPD's hosts: one for each domain on an address that its account has for itself.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// Writes a file "proftpd.conf" into the data folder of each account that has an address for itself, and the list of
/// them, `ftpvhosts`, which ProFTPD includes; ProFTPD's own check judges them. A reload is queued when something has
/// changed. Nothing is done without `ftpvhosts`. 0 with why in `result` when nothing was put in place. Leaves nobody's
/// identity.
[[nodiscard]] int rewriteFtpHosts(Text& result);

}  // namespace zvtaskq
