// Which message ids have been seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "core/tables/seeded_hash.h"

namespace zvtaskq {

/// A set of texts that only grows, for millions of them: it keeps 64 bits of each, 16 to 32 bytes a text in all. How
/// they are made is drawn anew for every set, so that nobody can choose ids that meet; that two of ten million do is
/// one chance in 300,000.
class IdSet {
 public:
  IdSet();
  /// Puts `id` in. False when it is there already.
  bool add(std::string_view id) { return addMark(markOf(id)); }
  /// The same in two steps: what is kept of a text, never 0, and putting it in. Whoever knows the marks some time ahead
  /// of putting them in has them fetched from memory meanwhile, which is where a large set spends its time.
  std::uint64_t markOf(std::string_view id) const;
  bool addMark(std::uint64_t mark);
  bool hasMark(std::uint64_t mark) const { return slots_[placeOf(mark)] == mark; }
  void fetch(std::uint64_t mark) const { __builtin_prefetch(&slots_[mark & (slots_.size() - 1)], 1); }
  std::size_t size() const { return count_; }
  void clear();

 private:
  /// Where a mark stands, or would.
  std::size_t placeOf(std::uint64_t mark) const {
    std::size_t at = mark & (slots_.size() - 1);
    while (slots_[at] != 0 && slots_[at] != mark) at = (at + 1) & (slots_.size() - 1);
    return at;
  }
  void grow();

  /// 0 is an empty slot.
  std::vector<std::uint64_t> slots_;
  std::size_t count_ = 0;
  SeededHash hash_;
};

}  // namespace zvtaskq
