// The action words of queue lines, in the order in which they are tested.
#pragma once

namespace zvtaskq {

class ConfigFile;

/// Carries out one task line; every outcome goes to the logs or to notices. A line without an action is reported as
/// "executeCommand:invalid action: %s"; an action word that nobody knows is dropped without a message. Finds and
/// leaves nobody's identity.
void executeCommand(const char* line);
/// The same for a line that is parsed already.
void executeTask(const char* line, ConfigFile& record);

}  // namespace zvtaskq
