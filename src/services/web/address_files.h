// What the web servers listen at, and what they answer to a name that is no site's.
#pragma once

namespace zvtaskq {

struct Task;

/// "rewrite"/"ips": writes `nginxips` and `apacheips`, as far as the settings name them and the server is in use, from
/// the list of addresses; a server's own check judges them. Then a restart of the web server is queued. "ips.conf
/// rewritten" in the system log, or "Unable to read ips file: %s" or "Unable to write ips.conf file: %s" in the error
/// log. Runs as nobody and leaves it.
int rewriteAddresses(const Task& task);

}  // namespace zvtaskq
