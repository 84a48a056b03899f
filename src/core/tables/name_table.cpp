#include "core/tables/name_table.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kFirstSlots = 64;
}  // namespace

NameTable::NameTable() : slots_(kFirstSlots, kNone) {}

/// Where the name stands, or the free slot where it would.
std::size_t NameTable::slotOf(std::string_view name, std::uint64_t hash) const {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = hash & mask;
  while (slots_[slot] != kNone) {
    const Name& there = names_[slots_[slot]];
    if (there.hash == hash && there.text == name) break;
    slot = (slot + 1) & mask;
  }
  return slot;
}

std::uint32_t NameTable::add(std::string_view name) {
  const std::uint64_t hash = hash_(name);
  const std::size_t slot = slotOf(name, hash);
  if (slots_[slot] != kNone) return slots_[slot];
  const char* copy = pool_.copy(name);
  if (copy == nullptr) return kNone;
  const auto number = static_cast<std::uint32_t>(names_.size());
  names_.push_back({{copy, name.size()}, hash});
  textSize_ += name.size();
  slots_[slot] = number;
  if (names_.size() * 2 > slots_.size()) grow();
  return number;
}

void NameTable::grow() {
  slots_.assign(slots_.size() * 2, kNone);
  const std::size_t mask = slots_.size() - 1;
  for (std::uint32_t number = 0; number < names_.size(); ++number) {
    std::size_t slot = names_[number].hash & mask;
    while (slots_[slot] != kNone) slot = (slot + 1) & mask;
    slots_[slot] = number;
  }
}

}  // namespace zvtaskq
