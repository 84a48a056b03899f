#include "services/dns/cluster.h"

#include <charconv>
#include <ctime>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "services/dns/zone_files.h"
#include "services/dns/zone_plan.h"
#include "services/dns/zone_records.h"
#include "services/dns/zone_serial.h"
#include "services/rewrite/left_out.h"

namespace zvtaskq {

namespace {

constexpr const char* kKey = "zorvane-cluster";
constexpr const char* kPeers = "zorvane-peers";
constexpr const char* kPeersFile = "dns_peers.list";
constexpr int kHighestPort = 65535;

std::string keyFile() {
  return joined(PathParts(zoneListFile()).folder, "/", kKey, ".key");
}

bool isPeer(std::string_view line) {
  const std::size_t sign = line.find('#');
  if (!isValidIP(std::string(line.substr(0, sign)).c_str())) return false;
  if (sign == std::string_view::npos) return true;
  const std::string_view digits = line.substr(sign + 1);
  int port = 0;
  const auto [behind, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  return error == std::errc() && behind == digits.data() + digits.size() && port > 0 && port <= kHighestPort;
}

/// As named.conf writes a peer.
std::string peerClause(const std::string& peer) {
  const std::size_t sign = peer.find('#');
  const std::string port = sign == std::string::npos ? "" : joined(" port ", peer.substr(sign + 1));
  return joined(" ", peer.substr(0, sign), port, " key \"", kKey, "\";");
}

/// The catalog is this server's: its peers may have one of their own.
std::string catalogZone() {
  return joined("zorvane-catalog.", sys_conf->servername);
}

std::string catalogText(const EntryList& list, unsigned long serial) {
  std::string text = joined("$TTL 3600\n@\tIN\tSOA\tinvalid. invalid. ", std::to_string(serial),
                            " 3600 600 1209600 3600\n@\tIN\tNS\tinvalid.\nversion\tIN\tTXT\t\"2\"\n");
  for (const auto& [path, entry] : list.entries()) {
    if (entry.origin.account.empty()) continue;
    const std::string zone = zoneIn(path);
    text.append(fingerprintOf(zone)).append(".zones\tIN\tPTR\t").append(zone).append(".\n");
  }
  return text;
}

unsigned long serialIn(const std::string* text) {
  std::vector<ZoneRecord> records;
  Text ignored;
  if (text == nullptr || !readZone(*text, catalogZone(), records, ignored)) return 0;
  return serialOf(records);
}

}  // namespace

std::vector<std::string> clusterPeers() {
  std::vector<std::string> peers;
  if (!sys_conf->cluster) return peers;
  const AsRoot root;
  PanelList list(adminFile(kPeersFile));
  if (!pathExists(keyFile().c_str()) || !pathExists(list.getFilename())) return peers;
  if (!list.readFile()) errorLog("%s: %s", list.getFilename(), list.result.orEmpty());
  for (int i = 0; i < list.size(); ++i) {
    const char* line = list.getElementAt(i);
    if (isPeer(line)) peers.emplace_back(line);
    if (!isPeer(line)) errorLog("%s: %.100s is no address", list.getFilename(), line);
  }
  return peers;
}

std::string clusterHead() {
  const std::vector<std::string> peers = clusterPeers();
  if (peers.empty()) return "";
  std::string head = joined("include \"", keyFile(), "\";\nprimaries \"", kPeers, "\" {");
  for (const std::string& peer : peers) head.append(peerClause(peer));
  return head.append(" };\n");
}

std::string clusterClauses() {
  if (clusterPeers().empty()) return "";
  return joined(" notify explicit; also-notify { ", kPeers, "; }; allow-transfer { key \"", kKey, "\"; };");
}

int writeCatalog(Text& result) {
  const std::string zone = catalogZone();
  if (clusterPeers().empty()) return 1;
  if (!isValidDomain(zone.c_str())) return fail(result, "servername is no host name");
  const ZoneForm form(false);
  Rewrite rewrite(form.plan(false));
  if (!rewrite.begin()) return fail(result, rewrite.result);
  const std::string* now = rewrite.present(form.fileOf(zone));
  const unsigned long serial = serialIn(now);
  std::string text = catalogText(rewrite.list(), serial);
  if (now == nullptr || *now != text) text = catalogText(rewrite.list(), serialAfter(serial, std::time(nullptr)));
  rewrite.offer(form.candidate({"", "catalog"}, zone, std::move(text)));
  return rewrite.finish() ? 1 : fail(result, rewrite.result);
}

}  // namespace zvtaskq
