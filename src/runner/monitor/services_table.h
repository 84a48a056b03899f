// The services that queue lines may name, and the verbs they take.
#pragma once

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

}  // namespace zvtaskq
