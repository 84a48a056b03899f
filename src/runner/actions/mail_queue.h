// The lines of the mail queue.
#pragma once

namespace zvtaskq {

/// Carries out one line of the mail queue: "limit", "userlimit" and "block_cracking". Without an action it is
/// reported in the error log.
void execute_mail_commmand(const char* line);

}  // namespace zvtaskq
