#include "services/web/actions.h"

#include "core/panel/panel_paths.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

/// What has been rewritten counts when the web server has read it.
int restartWebServer(const Task&) {
  queueTask("httpd", "restart");
  return 1;
}

int rewriteIps(const Task&) {
  PanelList addresses(adminFile("ip.list"));
  if (addresses.readFile()) return 1;
  errorLog("Unable to read ips file: %s", addresses.result.orEmpty());
  return 0;
}

constexpr ActionRow kRows[] = {
    {"confirm", "type", "httpd.conf", restartWebServer, "confirms that the web server includes a file"},
    {"confirm_removed", "type", "httpd.conf", restartWebServer, "confirms that the web server includes a file no more"},
    {"rewrite", "value", "httpd", restartWebServer, "rewrites the web server's configuration"},
    {"rewrite", "value", "nginx", restartWebServer, "rewrites the web server's configuration"},
    {"rewrite", "value", "litespeed", restartWebServer, "rewrites the web server's configuration"},
    {"rewrite", "value", "ips", rewriteIps, "rewrites the web server's addresses"},
};

}  // namespace

ActionRows webActions() {
  return kRows;
}

}  // namespace zvtaskq
