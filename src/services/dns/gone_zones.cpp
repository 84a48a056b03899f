#include "services/dns/gone_zones.h"

#include "core/panel/state_folder.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

constexpr const char* kFile = "zone_serials";

}  // namespace

void GoneZones::read() {
  if (isRead_) return;
  isRead_ = true;
  PanelRecord record(stateFile(kFile));
  if (!record.readFile()) return;
  for (long long i = 0; i < record.size(); ++i) {
    unsigned long serial = 0;
    if (record.getValue(record.getNameAt(i), &serial)) serials_[record.getNameAt(i)] = serial;
  }
}

unsigned long GoneZones::serialOf(const std::string& zone) {
  read();
  const auto found = serials_.find(zone);
  return found == serials_.end() ? 0 : found->second;
}

void GoneZones::note(const std::string& zone, unsigned long serial) {
  read();
  serials_[zone] = serial;
  changed_ = true;
}

void GoneZones::write() {
  if (!changed_ || !openStateFolder()) return;
  PanelRecord record(stateFile(kFile));
  for (const auto& [zone, serial] : serials_) record.setParam(zone.c_str(), serial);
  if (!record.writeFile()) errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
}

}  // namespace zvtaskq
