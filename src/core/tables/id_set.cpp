#include "core/tables/id_set.h"

#include <climits>
#include <cstring>
#include <utility>

#include "core/sys/random.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kFirstSlots = 1024;
/// Slots are at most half full.
constexpr std::size_t kSlotsEach = 2;
constexpr std::uint64_t kOddA = 0x9E3779B97F4A7C15ULL, kOddB = 0xD6E8FEB86659FD93ULL;

__extension__ using Product = unsigned __int128;

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
  const Product product = static_cast<Product>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t drawnNumber() {
  std::uint64_t number = 0;
  for (int i = 0; i < 2; ++i) number = number << 32 | static_cast<std::uint32_t>(getRandNumber(INT_MIN, INT_MAX));
  return number;
}

}  // namespace

IdSet::IdSet() : slots_(kFirstSlots), seed_(drawnNumber() | 1) {}

std::uint64_t IdSet::markOf(std::string_view id) const {
  std::uint64_t mark = seed_ ^ id.size();
  const char* p = id.data();
  std::size_t left = id.size();
  for (; left >= sizeof mark; left -= sizeof mark, p += sizeof mark) {
    std::uint64_t part = 0;
    std::memcpy(&part, p, sizeof part);
    mark = mix(mark ^ part, kOddA ^ seed_);
  }
  std::uint64_t part = 0;
  if (left > 0) std::memcpy(&part, p, left);
  mark = mix(mark ^ part, kOddB ^ seed_);
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
