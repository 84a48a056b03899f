#include "services/web/actions.h"

#include <string_view>

#include "account/model/account_lock.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "services/web/address_files.h"
#include "services/web/php_limits.h"
#include "services/web/web_rewrite.h"

namespace zvtaskq {

namespace {

/// Seconds to wait for who works on the account. A backup of it may take hours, and changes nothing that is read here.
constexpr int kOthersTime = 10;

/// Who suspends, frees or deletes an account queues its rewrite before the account's record says so: what is read
/// before that work has ended would be the state before it.
void waitForOthers(const char* account) {
  const AccountLock turn(account, kOthersTime);
  if (!turn.held()) debug(10, "%s is worked on by others, its web sites are rewritten meanwhile", account);
}

int rewriteFor(const char* account) {
  Text result;
  if (account != nullptr) waitForOthers(account);
  if (rewriteWebServers(account, result)) return 1;
  errorLog("Unable to rewrite the web server's configuration: %s", result.orEmpty());
  return 0;
}

int rewriteWeb(const Task& task) {
  return rewriteFor(task.getOrNull("user"));
}

/// A file of an account stands in the list of those that the server includes, or stands there no more, when the
/// account's part of the configuration is written.
int confirmFile(const Task& task) {
  const PathParts parts(task.value());
  const std::string account = PathParts(parts.folder).name;
  if (!account.empty() && accountFile(account.c_str(), parts.name.c_str()) == task.value()) {
    return rewriteFor(account.c_str());
  }
  errorLog("%s is no file of an account for the web server to include", printable(task.value()).c_str());
  // The server is to read its configuration anew all the same.
  queueTask("httpd", "restart");
  return 0;
}

int rebuildLimits(const Task&) {
  return rebuildPhpLimits();
}

constexpr ActionRow kRows[] = {
    {"cache", "value", "safemode", rebuildLimits, "rebuilds the list of what the accounts' PHP may do"},
    {"confirm", "type", "httpd.conf", confirmFile, "confirms that the web server includes a file"},
    {"confirm_removed", "type", "httpd.conf", confirmFile, "confirms that the web server includes a file no more"},
    {"rewrite", "value", "httpd", rewriteWeb, "rewrites the web server's configuration"},
    {"rewrite", "value", "nginx", rewriteWeb, "rewrites the web server's configuration"},
    {"rewrite", "value", "litespeed", rewriteWeb, "rewrites the web server's configuration"},
    {"rewrite", "value", "ips", rewriteAddresses, "rewrites the web server's addresses"},
};

}  // namespace

ActionRows webActions() {
  return kRows;
}

}  // namespace zvtaskq
