// Tables that the mail server looks things up in: "name: value" lines in a file below `emailvirtual`.
#pragma once

#include <functional>
#include <string>

#include "core/record/config_file.h"

namespace zvtaskq {

/// A name as it stands in such a table: in quotes when it holds a colon, as IPv6 addresses do.
std::string mailTableName(const std::string& name);

/// Makes the table hold the pairs of `wanted` and, of those that it holds now, the others for which `stays` answers
/// true. Names are as `mailTableName` gives them. All happens under the table's lock, as the mail server's user, whose
/// file it is (mode 0640 when it is new); a table that holds just that is not written. 0 with an error-log line.
/// Leaves nobody.
[[nodiscard]] int writeMailTable(const char* file, ConfigFile& wanted,
                                 const std::function<bool(const char* name)>& stays);

}  // namespace zvtaskq
