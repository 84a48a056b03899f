#include "support/driver.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "core/panel/run_state.h"
#include "core/sys/environment.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {
constexpr const char* kSettings = "/usr/local/zorvane/conf/zorvane.conf";
}

int driverMain(std::span<char*> words, std::span<const DriverRow> rows) {
  Config conf(kSettings);
  if (conf.error) {
    std::puts(conf.result.orEmpty());
    return 2;
  }
  useConfiguration(&conf);
  conf.setErrLog(joined(conf.logdir, "/errortaskq.log").c_str());
  const Log log;
  useCleanEnvironment();
  ::umask(077);
  if (!setRootPriv() || !dropSupplementaryGroups()) return 2;
  for (const DriverRow& row : rows) {
    if (words.size() < 2 || std::strcmp(row.operation, words[1]) != 0) continue;
    setNoPriv();
    Text result;
    const int done = row.work({conf, words.subspan(2), result});
    std::fputs(result.orEmpty(), stdout);
    return done == 1 ? 0 : 1;
  }
  std::puts("usage: OPERATION [ARGUMENT...]");
  return 2;
}

}  // namespace zvtaskq
