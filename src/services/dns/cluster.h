// The cluster of name servers: other BINDs that fetch this one's zones.
//
// There is one when `cluster` is on, "dns_peers.list" in `admindir` names a peer ("192.0.2.2", with "#port" behind it
// when it is not 53), and the key that both know stands in "zorvane-cluster.key" beside the list of zones. Which zones
// there are the peers learn from a catalog zone. The name servers do the rest: they tell each other, and fetch.
#pragma once

#include <string>
#include <vector>

#include "core/panel/task.h"
#include "core/text/text.h"

namespace zvtaskq {

/// The peers; none when there is no cluster. A line that is no address is left out with an error-log line.
std::vector<std::string> clusterPeers();
/// What stands before the zones in their list, and in each zone's entry; empty when there is no cluster.
std::string clusterHead();
std::string clusterClauses();

/// Writes the catalog zone from the list of zones as it stands, when there is a cluster. 0 with the reason in `result`.
[[nodiscard]] int writeCatalog(Text& result);

/// The peer that serves a domain for another server than this one: it exists there already. Empty when there is no
/// cluster, or none of the peers says so. The primary in the zone's SOA record counts, which is neither `servername`
/// nor `ns1`: peers go on serving what this server had before it was lost. Two seconds a peer, and one that is silent
/// is asked once a run. May be called under any identity, which is the same afterwards.
std::string peerWithOthers(const char* domain);

/// Carries out a line `sync`/`cluster`: a domain, or with `value=email` the mail account of `request`, which the hook
/// "cluster_email.sh" takes. A domain's peers are told to look, and asked for its serial a moment later. One that does
/// not have what this server serves is told again in a later run, `remote_dns_retries` times.
int syncWithCluster(const Task& task);

}  // namespace zvtaskq
