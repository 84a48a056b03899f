#include "runner/actions/mail_operations.h"

namespace zvtaskq {

MailOperations& mailOperations() {
  static MailOperations operations;
  return operations;
}

}  // namespace zvtaskq
