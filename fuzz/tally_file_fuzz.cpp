// A tally file, whatever stands in it: its total and its month are those of a plain reading, line by line.
#include <cmath>
#include <cstdio>
#include <set>

#include "core/record/config_file.h"
#include "core/sys/privileges.h"
#include "support.h"
#include "tally/traffic/bandwidth_breakdown.h"
#include "tally/traffic/tally_file.h"

namespace {
double plainTotal(std::string_view text) {
  std::set<std::string> seen;
  double total = 0;
  for (const std::string& line : linesOf(text)) {
    double amount = 0;
    if (std::sscanf(line.c_str(), "%lf", &amount) != 1 || !(amount > 0) || !std::isfinite(amount)) continue;
    const std::size_t equals = line.find('=');
    ConfigFile record(nullptr);
    if (equals != std::string::npos) record.fillFromPost(std::string_view(line).substr(equals + 1));
    const char* const id = record.getValue("id");
    const bool isNew = id == nullptr || *id == '\0' || seen.insert(id).second;
    if (isNew || !record.isValue("type", "email")) total += amount;
  }
  return total;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  writeInput("tally", text);
  const double total = getTallyTotal("tally");
  const double plain = plainTotal(text);
  require(total == plain, "total", std::to_string(total) + " is not " + std::to_string(plain));

  ConfigFile month(nullptr);
  require(get_bandwidth_breakdown("tally", month) == 1, "breakdown");
  double bytes = -1;
  long long count = -1, incoming = -1, outgoing = -1;
  require(month.getValue("simpletotal", &bytes) && bytes >= 0, "simpletotal");
  require(month.getValue("email_count", &count) && month.getValue("email_count_incoming", &incoming) &&
              month.getValue("email_count_outgoing", &outgoing) && incoming + outgoing <= count,
          "deliveries");
  return 0;
}
