// zvmailusage CONFIGURATION: enters the mail traffic that the mail server noted into the accounts' tally files. Run as
// root, by scripts/rotate_email_usage.sh. What goes wrong is told in the error log; the exit status is then 1.
#include <sys/stat.h>

#include <csignal>
#include <cstdio>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/sys/environment.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "libexec/mail_usage/mail_usage.h"

using namespace zvtaskq;

int main(int count, char** words) {
  if (count != 2) {
    std::puts("usage: zvmailusage CONFIGURATION");
    return 2;
  }
  Config conf(words[1]);
  const Log log;
  if (conf.error) {
    std::fputs(conf.result.orEmpty(), stdout);
    return 1;
  }
  useConfiguration(&conf);
  if (!conf.logdir.isEmpty()) conf.setErrLog(joined(conf.logdir, "/errortaskq.log").c_str());
  useCleanEnvironment();
  ::umask(077);
  forbidDumps();
  // The end of a lease: who holds one asks its descriptor.
  std::signal(SIGIO, SIG_IGN);
  if (!setRootPriv() || !dropSupplementaryGroups()) return 1;
  setNoPriv();
  if (isDemo() || MailUsage(conf).enter()) return 0;
  std::puts("not all could be entered");
  return 1;
}
