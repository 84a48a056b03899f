#include "core/tables/name_table.h"

#include <climits>
#include <cstring>

#include "core/sys/random.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kFirstSlots = 64;
constexpr std::uint64_t kFactor = 0x9e3779b97f4a7c15ULL;

std::uint64_t mixed(std::uint64_t a, std::uint64_t b) {
  const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t partAt(const char* text, std::size_t size) {
  std::uint64_t part = 0;
  std::memcpy(&part, text, size);
  return part;
}

std::uint64_t makeSecret() {
  const auto half = [] { return static_cast<std::uint64_t>(getRandNumber(0, INT_MAX)); };
  const std::uint64_t upper = half();
  return (upper << 33 ^ half()) | 1;
}

}  // namespace

NameTable::NameTable() : slots_(kFirstSlots, kNone), secret_(makeSecret()) {}

std::uint64_t NameTable::hashOf(std::string_view name) const {
  constexpr std::size_t step = sizeof(std::uint64_t);
  std::uint64_t hash = secret_ ^ name.size();
  std::size_t at = 0;
  for (; at + step <= name.size(); at += step) hash = mixed(hash ^ partAt(name.data() + at, step), kFactor ^ secret_);
  if (at < name.size()) hash = mixed(hash ^ partAt(name.data() + at, name.size() - at), kFactor ^ secret_);
  return mixed(hash, kFactor);
}

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
  const std::uint64_t hash = hashOf(name);
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
