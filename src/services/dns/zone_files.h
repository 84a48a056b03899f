// Where the name server's files stand.
#pragma once

#include <string>

#include "core/sys/identity.h"

namespace zvtaskq {

/// The folder of the zones: "/var/named" where that stands, else "/etc/bind".
const char* zoneFolder();
/// Whether there is one: without a name server there is nothing to write for it.
bool hasZoneFolder();
/// Whether the name server may write beside the zones, as it must to sign them: Debian forbids it in "/etc/bind".
bool serverMayWriteZones();
/// Where it keeps the keys of zones: "keys" in the zones' folder.
std::string zoneKeyFolder();
/// The zone file of a domain, "<zone folder>/<domain>.db".
std::string zoneFileOf(const char* domain);
/// The zone of such a file.
std::string zoneIn(const std::string& path);
/// Reads it whole. 0 when it cannot be opened or read. Runs under the identity it finds.
[[nodiscard]] int readZoneFile(const char* domain, std::string& text);
/// The list of zones that "named.conf" includes: "zorvane-zones.conf" in "/etc/bind" or "/etc/named".
std::string zoneListFile();
/// Whose the zones are: the panel's user's, in the group of the name server.
Ids zoneOwner();
/// The name server's user; root where there is none.
Ids nameServerIds();
/// Whose the list is: root's, in that group.
Ids zoneListOwner();

}  // namespace zvtaskq
