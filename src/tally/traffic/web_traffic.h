// The byte logs of the web sites: what was sent and received, a line a request.
#pragma once

#include <string_view>

namespace zvtaskq {

/// The bytes of one web byte log, received ones included, which are also added to `uploadTotal`. A line holds the bytes
/// sent and, behind a blank, those received; or those sent alone. What does not read as a number above 0 adds nothing,
/// and neither does a number that is not finite, an empty line, one that begins with "-", or a last line without its
/// line feed: it may be half of one that is still being written. A missing log, and null, are 0.
///
/// Reads as root, and leaves the process at nobody.
double getHttpTotal(const char* path, double& uploadTotal);

/// The sums of a byte log.
struct ByteSums {
  double total = 0;
  double upload = 0;
};

/// Adds the whole lines of `lines` to the sums.
void addByteLines(std::string_view lines, ByteSums& sums);

}  // namespace zvtaskq
