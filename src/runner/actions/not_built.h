// The work that queue lines ask for and that no room of this build does yet.
#pragma once

namespace zvtaskq {

struct Task;

/// Whether work of this build's own is missing for a line of the task queues, or of the mail queue: its words, for the
/// log, else null.
const char* missingFor(const Task& task);
const char* missingForMail(const Task& task);

/// Error log "<what>: not available in this build: <words>"; nothing for null words.
void reportMissing(const char* what, const char* words);

}  // namespace zvtaskq
