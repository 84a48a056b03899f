// The reports of both quota tools: a row has a user and numbers that stand in the line.
#include "core/read/line_reader.h"
#include "support.h"
#include "tally/disk/quota_report.h"

using namespace zvtaskq;
using namespace zvtaskq::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string whole(reinterpret_cast<const char*>(data), size);
  std::string_view rest = whole, line;
  while (nextLine(rest, line)) {
    for (const auto& read : {readQuotaRow, readXfsQuotaRow}) {
      QuotaRow row;
      if (!read(line, row)) continue;
      require(!row.user.empty() && row.user.find_first_of(" \t#") != 0, "user", line);
      require(line.find(std::to_string(row.used.blocks)) != std::string_view::npos, "blocks", line);
      require(line.find(std::to_string(row.used.inodes)) != std::string_view::npos, "inodes", line);
    }
  }
  return 0;
}
