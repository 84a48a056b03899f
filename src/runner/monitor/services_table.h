// The services that queue lines may name, the verbs they take, and those of one queue file coalesced to the strongest
// verb a service.
#pragma once

#include <map>
#include <string>

#include "core/record/config_file.h"

namespace zvtaskq {

/// Names of the system services, ended by null, and their names for people in the same order.
extern const char* const kSystemServices[];
extern const char* const kSystemServiceNames[];
/// The verbs from the weakest to the strongest, ended by null.
extern const char* const kServiceVerbs[];

/// The place of `word` in a null-terminated list, counted from 1; 0 when it is not there, null or empty.
int placeIn(const char* word, const char* const* list);

/// Whether the name is one of the other services: the PHP-FPM versions of the list always, "pure-ftpd" and "dovecot"
/// when their settings are on.
bool is_other_service(const char* name);

/// The task line of each service that is to be told something, parsed, in the order of the services' names.
using PendingServices = std::map<std::string, ConfigFile, std::less<>>;

/// Merges a service action into `pending`: what stands there stays unless its verb ranks lower than the new one's.
/// Verbs that are none rank 0.
void setHardest(PendingServices& pending, const ConfigFile& record);

}  // namespace zvtaskq
