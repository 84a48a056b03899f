// What the clock says, and what speaks against it.
#pragma once

#include <string>

#include "runner/syscheck/issues.h"

namespace zvtaskq {

struct ClockFacts {
  /// All in seconds since the epoch.
  long long now = 0;
  /// When the program was installed; 0 when that cannot be told.
  long long installed = 0;
  /// When the panel's error log was last written to; 0 when there is none.
  long long logged = 0;
  /// Whether the kernel says that something keeps its clock to the time.
  enum class Kept { yes, no, unknown } kept = Kept::unknown;
};

void addClockIssues(const ClockFacts& facts, Issues& issues);

}  // namespace zvtaskq
