// The serials of zones that are gone: one that comes back begins above its last.
#pragma once

#include <map>
#include <string>

namespace zvtaskq {

/// "<admindir>/state/zone_serials": a pair a zone. Works as root, which is the identity of the moment.
class GoneZones {
 public:
  /// The last serial of a zone that is gone; 0 when nothing is known of it.
  unsigned long serialOf(const std::string& zone);
  void note(const std::string& zone, unsigned long serial);
  /// Writes what was noted. A failure is told in the error log.
  void write();

 private:
  void read();

  std::map<std::string, unsigned long> serials_;
  bool isRead_ = false;
  bool changed_ = false;
};

}  // namespace zvtaskq
