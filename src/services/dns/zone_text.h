// The text of a zone: what the template makes of an account's data, and the account's own records.
//
// The records of the account's own stand behind a line that says so, and are kept. A zone without that line was made by
// somebody else: it was restored, or stood there before. Of it those records are taken over that the template would not
// make.
#pragma once

#include <string>
#include <vector>

#include "core/text/text.h"
#include "services/dns/zone_records.h"

namespace zvtaskq {

class Config;

/// A zone as it stands.
struct PresentZone {
  unsigned long serial = 0;
  /// It was written by the panel: `own` is the account's own. When not, `own` is all of it.
  bool isOurs = false;
  std::vector<ZoneRecord> own;
};

/// Takes a zone's text apart. 0 with the reason in `result`, "line N: ...", when it is not readable.
[[nodiscard]] int readPresentZone(std::string_view text, std::string_view domain, PresentZone& zone, Text& result);

/// A record that may not stand in the zone, and why.
struct RefusedRecord {
  std::string record;
  std::string why;
};

/// Stands for the serial number in a text that the template made, until it is known: no name and no value is like it.
inline constexpr std::string_view kSerialPlace = "_SERIAL_OF_THE_ZONE_";

/// The text of a zone with its serial. Records of the account's own are left alone.
std::string withSerial(std::string_view text, unsigned long serial);

/// Puts a zone together of what the template made and what stood there. Own records win over the template's of the same
/// name and type (a text record's over those that begin with the same word, a CNAME over all). Their times to live are
/// kept with `allow_ttl_override`. 0 with why in `result` when the template's text is no zone; `refused` tells of an
/// own record that may not stand there, and the text is of no use then.
[[nodiscard]] int composeZone(const std::string& domain, const std::string& filled, const PresentZone& present,
                              const Config& conf, std::string& text, std::vector<RefusedRecord>& refused, Text& result);

}  // namespace zvtaskq
