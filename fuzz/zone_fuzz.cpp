// A zone that somebody wrote: what becomes of it can be read again, is the same the second time, and holds no directive
// and no line that the rules for own records did not let in.
#include "core/config/config.h"
#include "services/dns/zone_text.h"
#include "support.h"

namespace {

constexpr const char* kMade =
    "$TTL 60\n@\tIN\tSOA\tns. h. _SERIAL_OF_THE_ZONE_ 1 1 1 1\n@\tIN\tNS\tns.\n@\tIN\tA\t192.0.2.1\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const Config conf(nullptr);
  const std::string text(reinterpret_cast<const char*>(data), size);
  PresentZone present;
  std::string zone, again;
  std::vector<RefusedRecord> refused;
  Text why;
  if (!readPresentZone(text, "bob.example", present, why)) return 0;
  require(composeZone("bob.example", kMade, present, conf, zone, refused, why), "composes");
  if (!refused.empty()) return 0;
  PresentZone second;
  require(readPresentZone(zone, "bob.example", second, why), "reads its own");
  require(second.isOurs, "knows its own");
  require(composeZone("bob.example", kMade, second, conf, again, refused, why) && refused.empty(), "composes again");
  require(zone == again, "is the same again");
  require(zone.find("\n$I") == std::string::npos && zone.find("\n$G") == std::string::npos, "no directive");
  return 0;
}
