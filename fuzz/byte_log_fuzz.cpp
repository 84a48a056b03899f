// A web byte log, whatever stands in it: the quick reading sums up to what the C library reads line by line.
#include <cmath>
#include <cstdio>

#include "support.h"
#include "tally/traffic/web_traffic.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  ByteSums found, plain;
  addByteLines(text, found);
  for (const std::string& line : linesOf(text)) {
    if (line.empty() || line.front() == '-') continue;
    double sent = 0, received = 0;
    const int numbers = std::sscanf(line.c_str(), "%lf %lf", &sent, &received);
    if (numbers >= 1 && sent > 0 && std::isfinite(sent)) plain.total += sent;
    if (numbers < 2 || !(received > 0) || !std::isfinite(received)) continue;
    plain.total += received;
    plain.upload += received;
  }
  require(found.total == plain.total, "total");
  require(found.upload == plain.upload, "upload total");
  return 0;
}
