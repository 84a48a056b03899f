// The action words of queue lines, in the order in which they are tested, and the rows of all rooms.
#pragma once

#include <vector>

#include "core/panel/task.h"

namespace zvtaskq {

/// Carries out one task line; every outcome goes to the logs or to notices. A line without an action is reported as
/// "executeCommand:invalid action: %s"; an action word that nobody knows is dropped without a message. Finds and
/// leaves nobody's identity.
void executeCommand(const char* line);
/// The same for a line that is parsed already.
void executeTask(const char* line, ConfigFile& record);

/// Carries out one line of the mail queue: "limit", "userlimit" and "block_cracking". Without an action it is
/// reported in the error log.
void execute_mail_commmand(const char* line);

/// Every row that a room of this build offers, in the order of the action words, within an action by its rooms.
std::vector<const ActionRow*> allRows();
/// The row that takes the line; null when there is none.
const ActionRow* rowFor(const Task& task);

}  // namespace zvtaskq
