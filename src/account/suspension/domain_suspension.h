// What the suspension of an account must know of those of its domains.
#pragma once

#include "account/model/suspension_notes.h"

namespace zvtaskq {

/// The file of a domain.
std::string domainSuspensionFile(const char* account, const char* domain);

/// Whether its record says so.
bool isDomainSuspended(const char* account, const char* domain);

/// Adds the mailboxes of the domain that are blocked for another reason than a suspension.
[[nodiscard]] int noteDomain(const char* account, const char* domain, SuspensionNotes& notes, Text& result);

}  // namespace zvtaskq
