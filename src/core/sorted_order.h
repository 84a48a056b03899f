// The sort under the containers: the order of many texts by `strcomp`, stable.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/text.h"

namespace zvtaskq {

/// Eight bytes of a text as a number that orders like `strcomp` does: signed bytes become unsigned ones, and the end
/// of the text comes before every byte. Equal numbers decide nothing.
inline std::uint64_t orderKey(std::string_view text) {
  std::uint64_t key = 0;
  const std::size_t length = text.size() < sizeof key ? text.size() : sizeof key;
  for (std::size_t i = 0; i < length; ++i) {
    key |= std::uint64_t{static_cast<unsigned char>(text[i] ^ '\x80')} << (8 * (sizeof key - 1 - i));
  }
  return key;
}

/// The length of what all texts begin with. Names such as "user000123" differ only behind it.
template <class TextAt>
std::size_t commonPrefix(std::size_t count, TextAt textAt) {
  if (count == 0) return 0;
  const std::string_view first = textAt(0);
  std::size_t shared = first.size();
  for (std::size_t i = 1; i < count && shared > 0; ++i) {
    const std::string_view text = textAt(i);
    shared = std::min(shared, text.size());
    if (std::memcmp(first.data(), text.data(), shared) == 0) continue;
    shared = static_cast<std::size_t>(std::mismatch(text.begin(), text.begin() + static_cast<long>(shared), first.begin()).first -
                                      text.begin());
  }
  return shared;
}

/// The numbers 0 to count-1 in the order of their texts; where texts are equal, `tie(a, b)` (negative, 0, positive)
/// decides, then the place they came in. Most comparisons are of two numbers, without a look at the texts.
template <class TextAt, class Tie>
std::vector<std::uint32_t> sortedOrder(std::size_t count, TextAt textAt, Tie tie) {
  struct Entry {
    std::uint64_t key;
    std::uint32_t index;
  };
  const std::size_t shared = commonPrefix(count, textAt);
  const auto keyOf = [&](std::string_view text) {
    return text.empty() ? ~std::uint64_t{0} : orderKey(text.substr(shared));
  };
  std::vector<Entry> entries(count);
  for (std::uint32_t i = 0; i < count; ++i) entries[i] = {keyOf(textAt(i)), i};
  std::sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) {
    if (a.key != b.key) return a.key < b.key;
    // Whole texts: an empty one sorts last, but the empty rest of one that is not comes first.
    int order = strcomp(textAt(a.index), textAt(b.index));
    if (order == 0) order = tie(a.index, b.index);
    return order != 0 ? order < 0 : a.index < b.index;
  });
  std::vector<std::uint32_t> order(count);
  for (std::size_t i = 0; i < count; ++i) order[i] = entries[i].index;
  return order;
}

/// Puts `items` into the order given, in place. `order` is used up.
template <class Item>
void applyOrder(Item* items, std::vector<std::uint32_t>& order) {
  for (std::uint32_t start = 0; start < order.size(); ++start) {
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

}  // namespace zvtaskq
