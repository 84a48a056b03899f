// Who is logged in by FTP.
#pragma once

#include <sys/types.h>

#include <set>

namespace zvtaskq {

/// Ends the sessions of Pure-FTPd and ProFTPD that work as one of these users: asks all, and kills after two seconds
/// what is left. One pass over the processes, none when nobody is named. May be called under any identity, which is
/// the same afterwards.
void endFtpSessions(const std::set<uid_t>& users);

}  // namespace zvtaskq
