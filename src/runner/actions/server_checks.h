// Puts the checks of the server's health behind the operations of usage accounting.
#pragma once

namespace zvtaskq {

/// From now on this build holds the load check and the partition check, which go by the process's configuration.
void provideServerChecks();

}  // namespace zvtaskq
