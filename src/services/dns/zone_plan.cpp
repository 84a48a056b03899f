#include "services/dns/zone_plan.h"

#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/private_folder.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "services/dns/cluster.h"
#include "services/dns/named_check.h"
#include "services/dns/zone_files.h"

namespace zvtaskq {

namespace {

constexpr mode_t kMode = 0640;
constexpr mode_t kKeyFolderMode = 0750;
constexpr const char* kHead =
    "# The zones of the panel's domains, for named.conf to include. Written by the panel: changes are lost.\n";

bool signsZones() {
  if (!sys_conf->dnssec) return false;
  if (!serverMayWriteZones()) {
    errorLog("Zones are not signed: dnssec=1 needs the folder /var/named");
    return false;
  }
  const AsUser server(nameServerIds());
  if (openPrivateFolder(zoneKeyFolder().c_str(), kKeyFolderMode)) return true;
  errorLog("Zones are not signed: %s: %s", zoneKeyFolder().c_str(), std::strerror(errno));
  return false;
}

}  // namespace

ZoneForm::ZoneForm(bool mayBeSigned) : folder_(zoneFolder()), owner_(zoneOwner()) {
  // Names with underscores pass the name server's own check only when it is told.
  if (sys_conf->allow_dns_underscore) clauses_.append(" check-names ignore;");
  if (mayBeSigned && signsZones()) {
    clauses_.append(joined(" dnssec-policy default; inline-signing yes; key-directory \"", zoneKeyFolder(), "\";"));
  }
  clauses_.append(clusterClauses());
}

RewritePlan ZoneForm::plan(bool isWhole) const {
  return {.name = "zones",
          .words = "DNS zones",
          .check = checkZones,
          .list = {zoneListFile(), zoneListOwner(), kMode, joined(kHead, clusterHead())},
          .sample = entryOf("zone.invalid", fileOf("zone.invalid")),
          .judgesAlone = true,
          .isWhole = isWhole,
          .followUp = {"named", "reload"}};
}

std::string ZoneForm::entryOf(const std::string& zone, std::string_view file) const {
  return joined("zone \"", zone, "\" { type master; file \"", file, "\";", clauses_, " };\n");
}

std::string ZoneForm::fileOf(const std::string& zone) const {
  return joined(folder_, "/", zone, ".db");
}

Candidate ZoneForm::candidate(Origin origin, const std::string& zone, std::string text) const {
  return {std::move(origin), fileOf(zone), std::move(text), owner_, kMode, entryOf(zone, kPlace)};
}

}  // namespace zvtaskq
