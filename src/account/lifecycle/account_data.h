// The data folder of a new account, and the pages in its home.
#pragma once

#include "account/model/account_holder.h"
#include "core/record/config_file.h"

namespace zvtaskq {

/// Makes the data folder with everything but "user.conf". 0 with a line in `result`.
[[nodiscard]] int makeData(const ConfigFile& record, Text& result);
/// Writes "user.conf": from then on there is an account.
[[nodiscard]] int writeUserRecord(const ConfigFile& record, Text& result);
/// Removes it all again.
[[nodiscard]] int removeData(const char* account, Text& result);
/// Gives the home its mode, and makes the folder of a domain's pages in it, as the user. An empty domain has none.
[[nodiscard]] int makePages(const char* account, const char* domain, Text& result);

}  // namespace zvtaskq
