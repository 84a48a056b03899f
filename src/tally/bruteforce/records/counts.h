// The failures that one scan counts: for each name, how many each filter found.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/tables/name_table.h"

namespace zvtaskq {

class BruteCounts {
 public:
  static constexpr std::uint32_t kLast = UINT32_MAX;
  struct Count {
    std::uint32_t filter = kLast;
    /// The next count of the same name; kLast behind the last.
    std::uint32_t next = kLast;
    long long failures = 0;
    /// Failures of this name are not counted for this filter.
    bool isExempt = false;
  };

  /// The count of the name with that number for a filter, and whether it was made just now. The numbers are those of
  /// any table of names. Valid until the next call.
  Count& of(std::uint32_t name, std::uint32_t filter, bool& isNew);
  /// Calls `visit(count)` for every count of the name.
  template <class Visit>
  void each(std::uint32_t name, Visit visit) const {
    if (name >= first_.size() || first_[name].filter == kLast) return;
    visit(first_[name]);
    for (std::uint32_t i = first_[name].next; i != kLast; i = more_[i].next) visit(more_[i]);
  }
  /// The names may have numbers up to this.
  std::uint32_t bound() const { return static_cast<std::uint32_t>(first_.size()); }

 private:
  /// The first count of every name, which most have no other than; and what follows those.
  std::vector<Count> first_;
  std::vector<Count> more_;
};

/// a + b, or the largest number.
long long addedUp(long long a, long long b);

/// The name of an account as the records of counts are keyed: HTML-escaped, and those bytes URL-encoded that a line of
/// a record could not hold. At most its first 256 bytes count. What has nothing of that in it is returned itself, all
/// else in `room`.
std::string_view bruteUserKey(std::string_view user, std::string& room);

}  // namespace zvtaskq
