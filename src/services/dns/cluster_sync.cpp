// Seeing to it that the peers of the cluster have what this server serves.
#include <strings.h>

#include <set>

#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/panel/run_state.h"
#include "core/panel/task_queue.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/text/names.h"
#include "services/dns/cluster.h"
#include "services/dns/name_server.h"
#include "services/dns/zone_files.h"

namespace zvtaskq {

namespace {

constexpr const char* kItself = "127.0.0.1";
constexpr const char* kMailHook = "cluster_email.sh";
/// Looks at a peer, and milliseconds between them: a transfer is a matter of moments.
constexpr int kLooks = 4;
constexpr int kBetweenLooks = 500;

/// What a peer says of a zone; false when it says nothing. One that did not answer once in this run is not asked again.
bool askPeer(const std::string& peer, const char* zone, ServedZone& served) {
  static std::set<std::string> silent;
  if (silent.contains(peer)) return false;
  bool answered = false;
  served = servedZone(peer, zone, answered);
  if (!answered) silent.insert(peer);
  return answered;
}

/// Whether a peer has a zone by a serial, or has it soon.
bool hasZone(const std::string& peer, const char* zone, unsigned long serial) {
  ServedZone served;
  for (int look = 0; look < kLooks; ++look) {
    if (look > 0) sleepSafely(kBetweenLooks);
    if (!askPeer(peer, zone, served)) return false;
    if (served.serial != 0 && isAsNew(served.serial, serial)) return true;
  }
  return false;
}

bool isSameHost(const std::string& host, const Text& other) {
  return ::strcasecmp(host.c_str(), other.orEmpty()) == 0;
}

void tryAgain(const char* domain, int count, const std::string& peer) {
  if (count >= sys_conf->remote_dns_retries) {
    errorLog("The name server %s does not have the zone of %s as it is here", peer.c_str(), domain);
    return;
  }
  ConfigFile more(nullptr);
  more.setParam("count", count + 1);
  static_cast<void>(pushOnTaskQueue("sync", domain, "cluster", &more));
}

int syncZone(const Task& task) {
  int count = 0;
  static_cast<void>(task.record.getValue("count", &count));
  const char* domain = task.value();
  std::string zone;
  if (!isValidDomain(domain) || !readZoneFile(domain, zone)) {
    errorLog("cluster sync retry number %d requested on %s, but cannot find %s", count, domain,
             zoneFileOf(domain).c_str());
    return 0;
  }
  const std::vector<std::string> peers = clusterPeers();
  Text why;
  if (peers.empty()) return 1;
  bool answered = false;
  const unsigned long serial = servedZone(kItself, domain, answered).serial;
  if (!tellNameServer({"notify", domain}, why)) errorLog("%s: %s", domain, why.orEmpty());
  for (const std::string& peer : peers) {
    if (serial != 0 && hasZone(peer, domain, serial)) continue;
    tryAgain(domain, count, peer);
    return 0;
  }
  return 1;
}

int syncMail(const Task& task) {
  if (!hookExists(*sys_conf, kMailHook)) {
    debug(10, "%s: there is no script for mail accounts of the cluster", kMailHook);
    return 1;
  }
  std::vector<Variable> variables;
  for (const char* key : {"request", "username", "host"}) variables.emplace_back(key, task.get(key));
  const HookAnswer answer = executeIfExists(hookPath(*sys_conf, kMailHook).c_str(), variables);
  if (answer.failed()) errorLog("%s: %s", kMailHook, answer.error.c_str());
  return answer.failed() ? 0 : 1;
}

}  // namespace

std::string peerWithOthers(const char* domain) {
  if (!isValidDomain(domain)) return "";
  for (const std::string& peer : clusterPeers()) {
    ServedZone served;
    if (!askPeer(peer, domain, served) || served.serial == 0) continue;
    if (!isSameHost(served.primary, sys_conf->servername) && !isSameHost(served.primary, sys_conf->ns1)) return peer;
  }
  return "";
}

int syncWithCluster(const Task& task) {
  const AsRoot root;
  return task.is("value", "email") ? syncMail(task) : syncZone(task);
}

}  // namespace zvtaskq
