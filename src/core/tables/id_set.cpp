#include "core/tables/id_set.h"

#include <utility>

namespace zvtaskq {

namespace {

constexpr std::size_t kFirstSlots = 1024;
/// Slots are at most half full.
constexpr std::size_t kSlotsEach = 2;
}  // namespace

IdSet::IdSet() : slots_(kFirstSlots) {}

std::uint64_t IdSet::markOf(std::string_view id) const {
  const std::uint64_t mark = hash_(id);
  return mark == 0 ? 1 : mark;
}

bool IdSet::addMark(std::uint64_t mark) {
  std::uint64_t& slot = slots_[placeOf(mark)];
  if (slot == mark) return false;
  slot = mark;
  if (++count_ * kSlotsEach > slots_.size()) grow();
  return true;
}

void IdSet::grow() {
  const std::vector<std::uint64_t> before = std::exchange(slots_, std::vector<std::uint64_t>(slots_.size() * 2));
  for (const std::uint64_t mark : before) {
    if (mark != 0) slots_[placeOf(mark)] = mark;
  }
}

void IdSet::clear() {
  slots_.assign(kFirstSlots, 0);
  count_ = 0;
}

}  // namespace zvtaskq
