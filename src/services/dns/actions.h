// What queue lines want of the DNS zones and the cluster.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

ActionRows dnsActions();

}  // namespace zvtaskq
