// The sort under the containers: many items by `strcomp` of their texts, stable.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

/// Eight bytes of a text as a number that orders like `strcomp` does: signed bytes become unsigned ones, and the end
/// of the text comes before every byte. Equal numbers decide nothing.
inline std::uint64_t orderKey(std::string_view text) {
  constexpr std::size_t size = sizeof(std::uint64_t);
  std::array<unsigned char, size> bytes;
  if (text.size() >= size) {
    std::memcpy(bytes.data(), text.data(), size);
    for (auto& byte : bytes) byte ^= 0x80U;
  } else {
    bytes.fill(0);
    for (std::size_t i = 0; i < text.size(); ++i) bytes[i] = static_cast<unsigned char>(text[i] ^ '\x80');
  }
  std::uint64_t key = 0;
  for (const auto byte : bytes) key = key << 8 | byte;
  return key;
}

namespace sorting {

/// Up to this many items, nothing is taken from the heap and plain insertion is the fastest.
constexpr std::size_t kFewItems = 32;
/// From this many on, distributing by bytes beats comparing.
constexpr std::size_t kManyItems = 1024;
constexpr int kKeyBytes = 8;

/// `strcomp`; most texts differ in their first byte, and need no call.
inline int compareTexts(std::string_view a, std::string_view b) {
  if (a.empty() || b.empty() || a[0] == b[0]) return strcomp(a, b);
  return static_cast<signed char>(a[0]) < static_cast<signed char>(b[0]) ? -1 : 1;
}

/// What stands for an item while the order is found.
struct Entry {
  std::uint64_t key;
  std::uint32_t index;
};

inline unsigned byteOf(const Entry& entry, int byte) {
  return entry.key >> (8 * byte) & 0xFF;
}

/// The length of what all texts begin with. Names such as "user000123" differ only behind it.
template <class TextAt>
std::size_t commonPrefix(std::size_t count, TextAt textAt) {
  const std::string_view first = textAt(0);
  std::size_t shared = first.size();
  for (std::size_t i = 1; i < count && shared > 0; ++i) {
    const std::string_view text = textAt(i);
    shared = std::min(shared, text.size());
    if (std::memcmp(first.data(), text.data(), shared) == 0) continue;
    shared = static_cast<std::size_t>(
        std::mismatch(text.begin(), text.begin() + static_cast<long>(shared), first.begin()).first - text.begin());
  }
  return shared;
}

/// Brings the entries into the order of their keys' leading bytes, as many as tell that many entries apart, and keeps
/// the order of those in which they agree. Returns the lowest byte that was looked at. No comparison, so none that a
/// processor could foresee wrongly.
inline int distribute(std::vector<Entry>& entries) {
  std::array<std::array<std::uint32_t, 256>, kKeyBytes> counts{};
  for (const Entry& entry : entries) {
    for (int byte = 0; byte < kKeyBytes; ++byte) ++counts[static_cast<std::size_t>(byte)][byteOf(entry, byte)];
  }
  int lowest = kKeyBytes;
  for (std::size_t reach = 1; lowest > 0 && reach < entries.size() * 4;) {
    const auto& found = counts[static_cast<std::size_t>(--lowest)];
    reach *= found.size() - static_cast<std::size_t>(std::count(found.begin(), found.end(), 0U));
  }
  std::vector<Entry> moved(entries.size());
  for (int byte = lowest; byte < kKeyBytes; ++byte) {
    auto& places = counts[static_cast<std::size_t>(byte)];
    if (places[byteOf(entries[0], byte)] == entries.size()) continue;
    std::uint32_t place = 0;
    for (std::uint32_t& start : places) {
      const std::uint32_t here = start;
      start = place;
      place += here;
    }
    for (const Entry& entry : entries) moved[places[byteOf(entry, byte)]++] = entry;
    entries.swap(moved);
  }
  return lowest;
}

/// Sorts a stretch of entries; `compare` decides between equal keys.
template <class Compare>
void sortStretch(Entry* from, Entry* to, Compare compare) {
  const auto before = [&](const Entry& a, const Entry& b) {
    if (a.key != b.key) return a.key < b.key;
    const int order = compare(a.index, b.index);
    return order != 0 ? order < 0 : a.index < b.index;
  };
  if (to - from > static_cast<std::ptrdiff_t>(kFewItems)) return std::sort(from, to, before);
  for (Entry* next = from + 1; next < to; ++next) {
    const Entry moved = *next;
    Entry* hole = next;
    for (; hole > from && before(moved, hole[-1]); --hole) *hole = hole[-1];
    *hole = moved;
  }
}

template <class Compare>
void sortMany(std::vector<Entry>& entries, Compare compare) {
  if (entries.size() < kManyItems) return sortStretch(entries.data(), entries.data() + entries.size(), compare);
  const int shift = 8 * distribute(entries);
  Entry* const end = entries.data() + entries.size();
  for (Entry *from = entries.data(), *to = from; from < end; from = to) {
    while (to < end && to->key >> shift == from->key >> shift) ++to;
    if (to - from > 1) sortStretch(from, to, compare);
  }
}

}  // namespace sorting

/// Puts `count` items into the order given, in place. `order` is used up.
template <class Item>
void applyOrder(Item* items, std::uint32_t* order, std::size_t count) {
  for (std::uint32_t start = 0; start < count; ++start) {
    if (order[start] == start) continue;
    const Item moved = items[start];
    std::uint32_t hole = start;
    while (order[hole] != start) {
      const std::uint32_t from = order[hole];
      items[hole] = items[from];
      order[hole] = hole;
      hole = from;
    }
    items[hole] = moved;
    order[hole] = hole;
  }
}

/// Sorts the items by `textOf(item)`; where texts are equal, `tie(a, b)` (negative, 0, positive) decides, then the
/// place they came in. Returns whether any two texts were equal.
template <class Item, class TextOf, class Tie>
bool sortByText(Item* items, std::size_t count, TextOf textOf, Tie tie) {
  using sorting::Entry;
  if (count < 2) return false;
  bool repeats = false;
  const auto compare = [&](std::uint32_t a, std::uint32_t b) {
    const int order = sorting::compareTexts(textOf(items[a]), textOf(items[b]));
    if (order != 0) return order;
    repeats = true;
    return tie(items[a], items[b]);
  };
  // Most of what is sorted was written in order, by this program.
  std::uint32_t ordered = 1;
  while (ordered < count && compare(ordered - 1, ordered) < 0) ++ordered;
  if (ordered == count) return repeats;
  const std::size_t shared = sorting::commonPrefix(count, [&](std::size_t i) { return textOf(items[i]); });
  const auto entryOf = [&](std::uint32_t i) -> Entry {
    const std::string_view text = textOf(items[i]);
    // An empty text sorts last, but the empty rest of one that is not comes first.
    return {text.empty() ? ~std::uint64_t{0} : orderKey(text.substr(shared)), i};
  };
  if (count <= sorting::kFewItems) {
    std::array<Entry, sorting::kFewItems> entries;
    std::array<std::uint32_t, sorting::kFewItems> order;
    for (std::uint32_t i = 0; i < count; ++i) entries[i] = entryOf(i);
    sorting::sortStretch(entries.data(), entries.data() + count, compare);
    for (std::size_t i = 0; i < count; ++i) order[i] = entries[i].index;
    applyOrder(items, order.data(), count);
    return repeats;
  }
  std::vector<Entry> entries(count);
  for (std::uint32_t i = 0; i < count; ++i) entries[i] = entryOf(i);
  sorting::sortMany(entries, compare);
  // Gathered from a copy: following the moves in place would wait for memory at each step.
  const std::vector<Item> before(items, items + count);
  for (std::size_t i = 0; i < count; ++i) items[i] = before[entries[i].index];
  return repeats;
}

}  // namespace zvtaskq
