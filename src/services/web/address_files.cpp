#include "services/web/address_files.h"

#include "account/model/ftp_files.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "services/web/server_form.h"

namespace zvtaskq {

namespace {

int readList(std::vector<std::string>& addresses) {
  PanelList list(adminFile("ip.list"));
  if (!list.readFile()) {
    errorLog("Unable to read ips file: %s", list.result.orEmpty());
    return 0;
  }
  for (int i = 0; i < list.size(); ++i) {
    const char* address = list.getElementAt(i);
    if (isValidIPv4(address) || (sys_conf->ipv6 && isValidIPv6(address))) addresses.emplace_back(address);
  }
  // Any other that the server has. With it nginx takes all of them by one socket, so that one that is not there is no
  // failure.
  addresses.emplace_back("*");
  if (sys_conf->ipv6) addresses.emplace_back("::");
  return 1;
}

/// `hasChanged` is set when a restart was queued.
int writeFor(WebServer server, const std::vector<std::string>& addresses, bool& hasChanged, Text& result) {
  const ServerForm form(server, *sys_conf);
  Candidate file;
  if (!form.addressFile(addresses, file, result)) return 0;
  if (file.path.empty()) return 1;
  if (!form.makeIncluded(result)) return 0;
  Rewrite rewrite(form.addressPlan());
  if (!rewrite.begin()) return fail(result, rewrite.result);
  rewrite.offer(std::move(file));
  if (!rewrite.finish()) return fail(result, rewrite.result);
  hasChanged = hasChanged || rewrite.hasChanged();
  return rewrite.counts().leftOut == 0 ? 1 : fail(result, "the server refuses it");
}

}  // namespace

int rewriteAddresses(const Task&) {
  std::vector<std::string> addresses;
  if (!readList(addresses)) return 0;
  if (isDemo()) return 1;
  bool hasChanged = false;
  Text result;
  for (const WebServer server : serversInUse(*sys_conf)) {
    if (writeFor(server, addresses, hasChanged, result)) continue;
    errorLog("Unable to write ips.conf file: %s", result.orEmpty());
    return 0;
  }
  systemLog("ips.conf rewritten");
  if (!hasChanged) queueTask("httpd", "restart");
  // The FTP hosts stand on the same addresses.
  if (!queueFtpHosts(result)) errorLog("%s", result.orEmpty());
  return 1;
}

}  // namespace zvtaskq
