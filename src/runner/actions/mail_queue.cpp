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
    errorLog("execute_mail_commmand:invalid action: %s", line);
    if (isDebug() < 2000) return;
    debug(2000, "execute_mail_commmand:invalid action: %s", line);
    record.printContents(0);
    return;
  }
  debug(2000, "zvtaskq: mail command: %s", line);
  reportMissing(line, missingForMail(task));
}

}  // namespace zvtaskq
