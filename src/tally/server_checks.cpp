#include "tally/server_checks.h"

#include "core/system_layer.h"
#include "tally/brute_entry_log.h"
#include "tally/brute_monitor.h"
#include "tally/load_check.h"
#include "tally/operations.h"
#include "tally/partition_check.h"

namespace zvtaskq {

void provideServerChecks() {
  tallyOperations().checkLoad.provide([] {
    check_system_load(sys_conf);
    return 1;
  });
  tallyOperations().checkPartitions.provide([] {
    check_partition_usage(sys_conf);
    return 1;
  });
  tallyOperations().scanBruteForceLogs.provide([] {
    check_brute_force_logs(sys_conf);
    return 1;
  });
  tallyOperations().clearBruteForceEntries.provide([] { return clear_brute_log_entries(sys_conf); });
}

}  // namespace zvtaskq
