// Service actions of one queue file, coalesced to the strongest verb a service.
#pragma once

namespace zvtaskq {

class ConfigFile;

/// Merges a service action into `pending`, a record of service name and task line: the stored line stays unless its
/// verb ranks lower than the new one's. Verbs that are none rank 0.
void setHardest(ConfigFile& pending, const ConfigFile& record);

}  // namespace zvtaskq
