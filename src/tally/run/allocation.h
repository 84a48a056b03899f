// What has been handed out: sums of limits.
#pragma once

#include <string>

#include "core/record/config_file.h"

namespace zvtaskq {

/// The limits that are summed up, each a number or, where any part is, "unlimited".
class Allocation {
 public:
  /// Adds the limits of an account's record.
  void add(const ConfigFile& limits, const char* account);
  void add(const Allocation& other);
  /// Puts a pair a limit into the record.
  void put(ConfigFile& record) const;

 private:
  static constexpr int kLimits = 11;
  struct Sum {
    bool isUnlimited = false;
    double amount = 0;
  };
  Sum sums_[kLimits];
};

}  // namespace zvtaskq
