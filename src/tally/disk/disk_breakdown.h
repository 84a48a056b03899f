// What an account's disk usage is made of, item by item.
#pragma once

#include "core/record/list_file.h"

namespace zvtaskq {

/// The list "du_breakdown.list" of an account's folder: a line an item, in the order in which they were found, each a
/// URL-encoded record with `size` (bytes), `descriptor` (what it is, for people) and `counted` ("yes" when it is in the
/// account's total, else "no").
class DiskBreakdown {
 public:
  explicit DiskBreakdown(const char* account);

  void du_detail(long long size, const char* descriptor, bool counted);
  /// Replaces the file. It belongs to the panel's user, mode 0600. 0 with an error-log line.
  [[nodiscard]] int write();

 private:
  ListFile items_;
};

}  // namespace zvtaskq
