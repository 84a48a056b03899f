// Messages and tickets that are past their time.
#pragma once

namespace zvtaskq {

/// Takes out of the account's message list the messages that are older than `delete_messages_days` and the tickets
/// that are older than `delete_tickets_days`, by their last message; 0 days is never. For the panel's own user the list
/// is the administrators' common one, and the folders of what is that old and stands in nobody's list any more are
/// removed too, as far as a minute goes; the next time goes on.
///
/// 0 with an error-log line when something could not be read or removed. May be called under any identity; leaves
/// nobody.
int removeOldMessages(const char* account);

}  // namespace zvtaskq
