// The rows of the action table, a function a row (or a few that differ by a word). All run as nobody and may leave
// any identity; none returns anything, since a line that fails never stops the next.
#pragma once

namespace zvtaskq {

struct Task;

void tallyAction(const Task& task);
void systemCheckAction(const Task& task);
void syncAction(const Task& task);
void cacheAction(const Task& task);
void bandwidthAction(const Task& task);
void confirmAction(const Task& task);
void confirmRemovedAction(const Task& task);
void backupAction(const Task& task);
void convertAction(const Task& task);
void deleteAction(const Task& task);
void addOptionsAction(const Task& task);
void restoreAction(const Task& task);
void vacationAction(const Task& task);
void resetAction(const Task& task);
void cleanResetAction(const Task& task);
void notifyAction(const Task& task);
void rewriteAction(const Task& task);
void defaultSpamAction(const Task& task);
void updateAction(const Task& task);
void ipSwapAction(const Task& task);

}  // namespace zvtaskq
