// What runs on this machine, each process as its status tells it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "core/sys/sys.h"

namespace zvtaskq {

struct RunningProcess {
  /// As the kernel keeps it: at most 15 bytes, the process's own choice.
  std::string name;
  uid_t real = 0;
  uid_t effective = 0;
  uid_t saved = 0;
};

/// Lets `take` have a descriptor of each process that is meant, by what was true of it when the descriptor was there
/// already: it is this one that is signalled, whoever gets its number by then. What is dead and only waits to be
/// noticed is passed over. One pass over all processes, as root; gives back the identity it finds. Their number.
int eachProcess(const std::function<bool(const RunningProcess&)>& isMeant,
                const std::function<void(Descriptor&&)>& take);

}  // namespace zvtaskq
