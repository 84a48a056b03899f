// Service actions of one queue file, coalesced to the strongest verb a service.
#pragma once

#include <map>
#include <string>

#include "core/record/config_file.h"

namespace zvtaskq {

/// The task line of each service that is to be told something, parsed, in the order of the services' names.
using PendingServices = std::map<std::string, ConfigFile, std::less<>>;

/// Merges a service action into `pending`: what stands there stays unless its verb ranks lower than the new one's.
/// Verbs that are none rank 0.
void setHardest(PendingServices& pending, const ConfigFile& record);

}  // namespace zvtaskq
