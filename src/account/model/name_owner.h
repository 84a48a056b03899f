// Whose a host name is.
#pragma once

#include <string_view>

#include "core/record/config_file.h"

namespace zvtaskq {

/// Whether an account may have a host name, by the table of domain owners (`readDomainOwners`): the nearest domain,
/// itself or above it, that somebody owns says whose it is. A name below nobody's domain is anybody's.
bool mayHaveName(const ConfigFile& owners, const char* account, std::string_view name);

}  // namespace zvtaskq
