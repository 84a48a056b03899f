#include "services/dns/zone_files.h"

#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestZone = 64UL << 20;
constexpr const char* kFolders[] = {"/var/named", "/etc/bind"};
constexpr const char* kListFolders[] = {"/etc/bind", "/etc/named"};
constexpr const char* kServerUsers[] = {"bind", "named"};

/// The first that is there, else the last.
template <class Names>
const char* firstFolder(const Names& folders) {
  for (const char* folder : folders) {
    if (pathExists(folder, PathKind::folder)) return folder;
  }
  return *(std::end(folders) - 1);
}

}  // namespace

const char* zoneFolder() {
  return firstFolder(kFolders);
}

bool hasZoneFolder() {
  return pathExists(zoneFolder(), PathKind::folder) != 0;
}

bool serverMayWriteZones() {
  return std::string_view(zoneFolder()) == kFolders[0];
}

std::string zoneKeyFolder() {
  return joined(zoneFolder(), "/keys");
}

std::string zoneFileOf(const char* domain) {
  return joined(zoneFolder(), "/", domain, ".db");
}

std::string zoneIn(const std::string& path) {
  const std::string name = PathParts(path).name;
  return name.substr(0, name.rfind(".db"));
}

int readZoneFile(const char* domain, std::string& text) {
  const Descriptor file = openRegularFile(zoneFileOf(domain).c_str());
  return file && sys::readAll(file.get(), text, kLongestZone) ? 1 : 0;
}

std::string zoneListFile() {
  return joined(firstFolder(kListFolders), "/zorvane-zones.conf");
}

Ids nameServerIds() {
  for (const char* user : kServerUsers) {
    const Ids ids = idsOf(user);
    if (ids.user != kUnknownId && ids.group != kUnknownId) return ids;
  }
  return kRootIds;
}

Ids zoneOwner() {
  return {idsOf(kPanelUser).user, nameServerIds().group};
}

Ids zoneListOwner() {
  return {kRootIds.user, nameServerIds().group};
}

}  // namespace zvtaskq
