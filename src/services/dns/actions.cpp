#include "services/dns/actions.h"

#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "services/dns/zone_files.h"
#include "services/dns/zone_rewrite.h"

namespace zvtaskq {

namespace {

int syncZone(const Task& task) {
  int count = 0;
  static_cast<void>(task.record.getValue("count", &count));
  std::string zone;
  if (isValidDomain(task.value()) && readZoneFile(task.value(), zone)) return 1;
  errorLog("cluster sync retry number %d requested on %s, but cannot find %s", count, task.value(),
           zoneFileOf(task.value()).c_str());
  return 0;
}

int syncWithCluster(const Task& task) {
  const AsRoot root;
  return task.is("value", "email") ? 1 : syncZone(task);
}

int rewriteDkim(const Task&) {
  if (sys_conf->dkim) return 1;
  errorLogAndDebug(10, "dkim is not enabled. Enable dkim=1 if you want to use it.");
  return 0;
}

int rewriteNamed(const Task& task) {
  ZoneOrder order;
  order.domain = task.getOrNull("domain");
  order.raisesSerials = task.isOn("update_serial");
  Text result;
  const int done = rewriteZones(order, result);
  if (done) systemLog("Named rewritten");
  if (!done) errorLog("Error rewriting named: %s", result.orEmpty());
  return done;
}

constexpr ActionRow kRows[] = {
    {"sync", "type", "cluster", syncWithCluster, "hands a zone or mail account to the DNS cluster"},
    {"rewrite", "value", "named", rewriteNamed, "writes the DNS zones"},
    {"rewrite", "value", "dkim", rewriteDkim, "makes DKIM keys and their DNS records"},
};

}  // namespace

ActionRows dnsActions() {
  return kRows;
}

}  // namespace zvtaskq
