#include "runner/actions/mail_queue.h"

#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "runner/actions/mail_operations.h"

namespace zvtaskq {

void execute_mail_commmand(const char* line) {
  ConfigFile record(nullptr);
  record.fillFromPost(line);
  const char* action = record.getValue("action");
  if (action == nullptr || *action == '\0') {
    errorLog("execute_mail_commmand:invalid action: %s", line);
    if (isDebug() >= 2000) {
      debug(2000, "execute_mail_commmand:invalid action: %s", line);
      record.printContents(0);
    }
    return;
  }
  debug(2000, "zvtaskq: mail command: %s", line);
  const char* user = record.getValue("username");
  if (record.isValue("action", "limit")) mailOperations().handleLimit(user, line);
  if (record.isValue("action", "userlimit")) mailOperations().handleUserLimit(user, line);
  if (record.isValue("action", "block_cracking")) mailOperations().tellOfBlockedSenders(line);
  reportUnavailable(line);
}

}  // namespace zvtaskq
