#include "services/web/pool_closing.h"

#include <set>
#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/sys/privileges.h"
#include "services/rewrite/rewrite.h"
#include "services/web/php_pools.h"
#include "services/web/web_server_signal.h"

namespace zvtaskq {

namespace {

/// Drops what is listed of the account; `versions` gets those of PHP whose pools are gone.
int dropPools(const char* account, std::set<std::string>& versions, Text& result) {
  Rewrite pools(PhpPools::plan(false));
  if (!openStateFolder() || !pools.begin()) return fail(result, pools.result);
  std::vector<Origin> origins;
  for (const auto& [path, entry] : pools.list().entries()) {
    if (entry.origin.account == account) origins.push_back(entry.origin);
  }
  for (const Origin& origin : origins) {
    versions.insert(origin.part);
    pools.drop(origin);
  }
  return origins.empty() || pools.finish() ? 1 : fail(result, pools.result);
}

}  // namespace

int closePhpPools(const char* account, Text& result) {
  if (installedPhp().empty()) return 1;
  const AsRoot root;
  std::set<std::string> versions;
  if (!dropPools(account, versions, result)) return 0;
  // That one cannot be told is in the error log; the restart that is queued tells it.
  for (const std::string& version : versions) static_cast<void>(web_server::reloadPhp(version));
  return 1;
}

}  // namespace zvtaskq
