// The statistics pages of a domain.
#pragma once

#include "core/sys/sys.h"

namespace zvtaskq {

class Config;
class TimeBudget;

/// Whether statistics may be written to the folder at `path`: it and all folders above it are no links (but for an
/// administrator's above system folders), it belongs to `user`, not everybody may write to it, and all that is in it
/// are files and folders (a program that opens a pipe would hang). 1, or 0 with "Suspicious stats folder found" in the
/// error and security logs. Works as root, and leaves the process at nobody.
[[nodiscard]] int check_stats_path(const char* path, const char* user);

/// Whether Webalizer (/usr/bin/webalizer) is on this machine; a debug line when not.
bool hasWebalizer();

/// Brings the pages that Webalizer (with "/etc/webalizer.conf" when there is one) makes in the
/// domain's folder "stats" up to date, as the account's user; those of a subdomain are in a folder of its name in
/// there. What it reads is the access log of the server that visitors speak to: the one that this tally put aside
/// (".1"), or the current one where tallies do not put logs aside. With `custom_stats_path` the folder is
/// "<custom_stats_path>/<domain>/stats". Missing folders are made. Without a log there is nothing to be
/// done. The program runs within the account's `time`; when that is used up, nothing is done.
/// 1, or 0 with an error-log line. Leaves the process at nobody.
[[nodiscard]] int doWebalizer(const Config* conf, const char* user, const char* domain, const char* subdomain,
                              TimeBudget& time);

/// The same with AWStats and the folder "awstats", by the script "scripts/custom/awstats_process.sh" in the panel's
/// folder or, without one, the panel's own "scripts/awstats_process.sh". As the account's user it gets the log on its
/// standard input, and as arguments the user, the host (with the subdomain) and the folder, where it works.
[[nodiscard]] int doAwstats(const Config* conf, const char* user, const char* domain, const char* subdomain,
                            TimeBudget& time);

}  // namespace zvtaskq
