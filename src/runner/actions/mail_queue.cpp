#include "runner/actions/mail_queue.h"

#include "core/panel/task.h"
#include "core/sys/log.h"
#include "runner/actions/not_built.h"

namespace zvtaskq {

void execute_mail_commmand(const char* line) {
  ConfigFile record(nullptr);
  record.fillFromPost(line);
  const Task task{line, record};
  if (*task.action() == '\0') {
    errorLogAndDebug(2000, "execute_mail_commmand:invalid action: %s", printableLine(line).c_str());
    if (isDebug() >= 2000) printContents(task);
    return;
  }
  if (isDebug() >= 2000) debug(2000, "zvtaskq: mail command: %s", printableLine(line).c_str());
  reportMissing(line, missingForMail(task));
}

}  // namespace zvtaskq
