#include "services/dns/zone_files.h"

#include "core/files/safe_file.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestZone = 64UL << 20;

const char* zoneFolder() {
  struct stat what {};
  return sys::lstat("/var/named", what) == 0 ? "/var/named" : "/etc/bind";
}

}  // namespace

std::string zoneFileOf(const char* domain) {
  return joined(zoneFolder(), "/", domain, ".db");
}

int readZoneFile(const char* domain, std::string& text) {
  const Descriptor file = openRegularFile(zoneFileOf(domain).c_str());
  return file && sys::readAll(file.get(), text, kLongestZone) ? 1 : 0;
}

}  // namespace zvtaskq
