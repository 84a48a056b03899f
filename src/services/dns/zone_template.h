// The template of zones, and what one zone puts into it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "core/text/text.h"
#include "services/dns/zone_tokens.h"

namespace zvtaskq {

/// The values of a zone's tokens. None of them may hold a line feed or the template's delimiter.
using ZoneValues = std::map<ZoneToken, std::vector<std::string>>;

class ZoneTemplate {
 public:
  /// Reads "dns_zone.txt" of the templates, the administrator's own before ours. 0 with why in `result`.
  [[nodiscard]] int read(Text& result);
  /// The template filled: what Tokenizer does, and then each line with tokens that are lists once for each of their
  /// values. 0 with why in `result`: a token that there is not.
  [[nodiscard]] int fill(const ZoneValues& values, std::string& text, Text& result) const;

 private:
  std::string path_;
  std::string text_;
};

}  // namespace zvtaskq
