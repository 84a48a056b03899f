#include "services/dns/actions.h"

#include "core/sys/log.h"
#include "services/dns/cluster.h"
#include "services/dns/key_rows.h"
#include "services/dns/zone_rewrite.h"

namespace zvtaskq {

namespace {

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
    {"rewrite", "value", "dnssec", rewriteDnssec, "signs DNS zones anew"},
};

}  // namespace

ActionRows dnsActions() {
  return kRows;
}

}  // namespace zvtaskq
