#include "runner/actions/server_checks.h"

#include "core/panel/run_state.h"
#include "runner/actions/tally_operations.h"
#include "tally/bruteforce/records/entry_log.h"
#include "tally/bruteforce/watch/check.h"
#include "tally/checks/load.h"
#include "tally/checks/partition_check.h"

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
