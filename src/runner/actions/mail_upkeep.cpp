#include "runner/actions/mail_upkeep.h"

#include "core/panel/run_state.h"
#include "mail/email.h"
#include "mail/vacation_watch.h"
#include "runner/actions/mail_operations.h"

namespace zvtaskq {

void provideMailUpkeep() {
  mailOperations().switchAllVacations.provide([] {
    VacationWatch(sys_conf, nullptr);
    return 1;
  });
  mailOperations().switchVacations.provide([](const char* domain) {
    VacationWatch(sys_conf, domain);
    return 1;
  });
  mailOperations().unblockSenders.provide([](int which) {
    Email::check_block_cracking_auto_unblock(sys_conf, which);
    return 1;
  });
}

}  // namespace zvtaskq
