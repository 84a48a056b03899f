// Reading the text of a zone, as name servers take it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

struct ZoneRecord {
  /// Relative to the zone, in lower case; "@" for the zone itself.
  std::string name;
  /// Seconds; -1 when it has none of its own.
  long long ttl = -1;
  /// In upper case.
  std::string type;
  /// The rest in its words, quoted ones as they are quoted.
  std::vector<std::string> data;
  /// Where it stands in the text: from the beginning of its line to behind its line feed.
  std::size_t begin = 0;
  std::size_t end = 0;

  /// The words with a blank between them.
  std::string dataText() const;
  /// What a text record begins with, up to the first blank or ";", without quotes: "v=spf1". Empty for other types.
  std::string_view tag() const;
};

/// "name ttl IN type data", separated by tabs, with a line feed.
std::string lineOf(const ZoneRecord& record);

/// Takes the records of a zone's text in their order. "$TTL" and "$ORIGIN" are understood; names are taken relative to
/// `domain`, and host names in records are made absolute where another origin is in force. 0 with "line N: ..." in
/// `result`: "$INCLUDE" and every other directive, a name out of the zone, a class that is not IN, a quote or
/// parenthesis that is not closed, a control character.
[[nodiscard]] int readZone(std::string_view text, std::string_view domain, std::vector<ZoneRecord>& records,
                           Text& result);

/// The serial of the zone's SOA record; 0 when it has none.
unsigned long serialOf(const std::vector<ZoneRecord>& records);

}  // namespace zvtaskq
