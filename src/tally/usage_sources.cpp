#include "tally/usage_sources.h"

#include "core/system_layer.h"
#include "tally/home_traffic.h"
#include "tally/operations.h"
#include "tally/quota_tables.h"

namespace zvtaskq {

void provideUsageSources() {
  tallyOperations().readAllQuotas.provide(
      [] { return getAllQuotas(sys_conf, quotaTables().quotas, quotaTables().inodes); });
  tallyOperations().tallyHomeDirectories.provide([] { return parseHomeDirBandwidth(); });
}

}  // namespace zvtaskq
