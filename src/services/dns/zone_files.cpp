#include "services/dns/zone_files.h"

#include <vector>

#include "core/files/safe_file.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

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
  if (!file) return 0;
  std::vector<char> block(65536);
  ssize_t got = 0;
  while ((got = sys::read(file.get(), block.data(), block.size())) > 0)
    text.append(block.data(), static_cast<std::size_t>(got));
  return got == 0 ? 1 : 0;
}

}  // namespace zvtaskq
