#include "runner/actions/usage_sources.h"

#include "core/panel/run_state.h"
#include "runner/actions/tally_operations.h"
#include "tally/disk/quota_tables.h"
#include "tally/traffic/home_traffic.h"

namespace zvtaskq {

void provideUsageSources() {
  tallyOperations().readAllQuotas.provide(
      [] { return getAllQuotas(sys_conf, quotaTables().quotas, quotaTables().inodes); });
  tallyOperations().tallyHomeDirectories.provide([] { return parseHomeDirBandwidth(); });
}

}  // namespace zvtaskq
