// How many accounts use each address of the server.
#pragma once

namespace zvtaskq {

/// Counts, in one pass over all accounts, for each address of "ip.list" the accounts whose record or "ip.list" names
/// it, each once, and keeps the number as `users` in the address's record where it has changed. 0 with error-log lines
/// when something could not be read or written; the rest is counted and kept. May be called under any identity; leaves
/// nobody.
int recountIps();

}  // namespace zvtaskq
