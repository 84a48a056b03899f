// Puts the sources of usage accounting behind its operations.
#pragma once

namespace zvtaskq {

/// From now on this build reads the quotas of all accounts (into quotaTables) and bills the traffic of home
/// directories, by the process's configuration.
void provideUsageSources();

}  // namespace zvtaskq
