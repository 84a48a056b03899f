// The sort under the containers, many items by `strcomp` of their texts, stable; and the search in what is sorted.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "core/text/large_pages.h"
#include "core/text/text.h"

namespace zvtaskq {

/// Eight bytes of a text as a number that orders like `strcomp` does: signed bytes become unsigned ones, and the end
/// of the text comes before every byte. Equal numbers decide nothing where a text ends within them.
inline std::uint64_t orderKey(std::string_view text) {
  constexpr std::size_t size = sizeof(std::uint64_t);
  constexpr std::uint64_t signs = 0x8080808080808080U;
  std::uint64_t key = 0;
  if (text.size() >= size) {
    for (std::size_t i = 0; i < size; ++i) key = key << 8 | static_cast<unsigned char>(text[i]);
    return key ^ signs;
  }
  for (std::size_t i = 0; i < size; ++i) {
    key = key << 8 | (i < text.size() ? static_cast<unsigned char>(text[i] ^ '\x80') : 0U);
  }
  return key;
}

namespace sorting {

/// Up to this many items, nothing is taken from the heap and plain insertion is the fastest.
constexpr std::size_t kFewItems = 32;
/// Up to this many, comparing their texts costs less than looking at each for a key.
constexpr std::ptrdiff_t kTinyGroup = 6;
/// From this many on, distributing by bytes beats comparing.
constexpr std::ptrdiff_t kManyItems = 1024;
constexpr std::size_t kKeyBytes = sizeof(std::uint64_t);
/// So many texts are looked at to guess what all have in common.
constexpr std::ptrdiff_t kSamples = 4;
/// Texts lie far apart in memory: so many entries before its turn, one is asked for.
constexpr std::ptrdiff_t kAhead = 8;

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

/// Memory for as long as a sort lasts, in large pages; without it there is no going on.
class Room {
 public:
  explicit Room(std::size_t size) : memory_(roomInLargePages(size)) {
    if (memory_ == nullptr) std::abort();
  }
  Room(const Room&) = delete;
  Room& operator=(const Room&) = delete;
  ~Room() { std::free(memory_); }
  template <class Thing>
  Thing* of() const {
    return static_cast<Thing*>(memory_);
  }

 private:
  void* memory_;
};

inline unsigned byteOf(const Entry& entry, std::size_t byte) {
  return entry.key >> (8 * byte) & 0xFF;
}

/// Sorts by insertion, which keeps what is in order already.
template <class Before>
void insertionSort(Entry* from, Entry* to, Before before) {
  for (Entry* next = from + 1; next < to; ++next) {
    const Entry moved = *next;
    Entry* hole = next;
    for (; hole > from && before(moved, hole[-1]); --hole) *hole = hole[-1];
    *hole = moved;
  }
}

inline void sortByKey(Entry* from, Entry* to) {
  const auto before = [](const Entry& a, const Entry& b) { return a.key < b.key; };
  if (to - from > static_cast<std::ptrdiff_t>(kFewItems)) return std::sort(from, to, before);
  insertionSort(from, to, before);
}

/// Whether entries whose keys begin with the same byte have the same key.
inline bool firstByteTells(const Entry* from, const Entry* to) {
  std::array<const Entry*, 256> known{};
  return std::all_of(from, to, [&](const Entry& entry) {
    const Entry*& first = known[byteOf(entry, kKeyBytes - 1)];
    if (first == nullptr) first = &entry;
    return first->key == entry.key;
  });
}

/// Brings many entries into the order of their keys' leading bytes, as many as tell that many entries apart. Those in
/// which they agree stay in the order they came in, which is that of the memory they stand for. Returns the lowest byte
/// that was looked at, 0 when the order is that of the whole keys. No comparison, so none that a processor could
/// foresee wrongly. `room` holds as many entries again.
inline std::size_t distribute(Entry* from, Entry* to, Entry* room) {
  const auto size = static_cast<std::size_t>(to - from);
  std::array<std::array<std::uint32_t, 256>, kKeyBytes> counts{};
  for (const Entry* entry = from; entry != to; ++entry) {
    for (std::size_t byte = 0; byte < kKeyBytes; ++byte) ++counts[byte][byteOf(*entry, byte)];
  }
  std::size_t lowest = kKeyBytes;
  for (std::size_t reach = 1; lowest > 0 && reach < size * 4;) {
    const auto& found = counts[--lowest];
    reach *= found.size() - static_cast<std::size_t>(std::count(found.begin(), found.end(), 0U));
  }
  const bool isPlain = lowest == 0 && firstByteTells(from, to);
  if (isPlain) lowest = kKeyBytes - 1;
  Entry *source = from, *target = room;
  for (std::size_t byte = lowest; byte < kKeyBytes; ++byte) {
    auto& places = counts[byte];
    if (places[byteOf(*source, byte)] == size) continue;
    std::uint32_t place = 0;
    for (std::uint32_t& start : places) place += std::exchange(start, place);
    for (const Entry* entry = source; entry != source + size; ++entry) target[places[byteOf(*entry, byte)]++] = *entry;
    std::swap(source, target);
  }
  if (source != from) std::copy(source, source + size, from);
  return isPlain ? 0 : lowest;
}

inline void sortManyByKey(Entry* from, Entry* to, Entry* room) {
  if (to - from < kManyItems) return sortByKey(from, to);
  const std::size_t shift = 8 * distribute(from, to, room);
  if (shift == 0) return;
  for (Entry* next = from; from < to; from = next) {
    while (next < to && next->key >> shift == from->key >> shift) ++next;
    if (next - from > 1) sortByKey(from, next);
  }
}

/// Sorts entries by their texts, eight bytes at a time: a group whose keys are equal is sorted by the bytes behind
/// them. Texts lie far apart in memory, so each look at one is made to count.
template <class TextAt, class Hint, class Compare>
class TextSort {
 public:
  /// `compare` decides between texts as a whole; `hint` asks for what `textAt` looks at. The entries end at `end`,
  /// behind which there is room for as many again when they are `kManyItems` or more.
  TextSort(TextAt textAt, Hint hint, Compare compare, Entry* end)
      : textAt_(textAt), hint_(hint), compare_(compare), end_(end) {}

  /// The texts agree in their first `depth` bytes.
  void sort(Entry* from, Entry* to, std::size_t depth) const {
    std::size_t shared = sharedBehind(from, to, depth, kSamples);
    if (!makeKeys(from, to, depth, shared)) {
      shared = sharedBehind(from, to, depth, to - from);
      static_cast<void>(makeKeys(from, to, depth, shared));
    }
    depth += shared + kKeyBytes;
    sortManyByKey(from, to, end_);
    for (Entry* next = from; from < to; from = next) {
      while (next < to && next->key == from->key) ++next;
      if (next - from > 1) sortEqual(from, next, depth);
    }
  }

 private:
  /// Sorts entries whose keys, which reach up to `depth`, are equal.
  void sortEqual(Entry* from, Entry* to, std::size_t depth) const {
    const auto endsBefore = [&](const Entry& entry) { return textAt_(entry.index).size() < depth; };
    if (to - from > kTinyGroup && std::none_of(from, to, endsBefore)) return sort(from, to, depth);
    const auto before = [&](const Entry& a, const Entry& b) {
      const int order = compare_(a.index, b.index);
      return order != 0 ? order < 0 : a.index < b.index;
    };
    if (to - from > static_cast<std::ptrdiff_t>(kFewItems)) return std::sort(from, to, before);
    insertionSort(from, to, before);
  }

  /// Keys of what stands behind the first `depth` bytes and the `shared` ones that follow. False, with the keys of no
  /// use, when not all texts have those in common.
  bool makeKeys(Entry* from, Entry* to, std::size_t depth, std::size_t shared) const {
    const std::string_view common = textAt_(from->index).substr(depth, shared);
    for (Entry* entry = from; entry != to; ++entry) {
      if (end_ - entry > 2 * kAhead) {
        hint_(entry[2 * kAhead].index);
        __builtin_prefetch(textAt_(entry[kAhead].index).data());
      }
      const std::string_view text = textAt_(entry->index);
      if (!text.substr(depth).starts_with(common)) return false;
      // An empty text sorts last, but the empty rest of one that is not comes first.
      entry->key = text.empty() ? ~std::uint64_t{0} : orderKey(text.substr(depth + shared));
    }
    return true;
  }

  /// How much texts have in common behind `depth`: all, or as many of them as `samples` says. Names such as
  /// "user000123" differ only behind it.
  std::size_t sharedBehind(const Entry* from, const Entry* to, std::size_t depth, std::ptrdiff_t samples) const {
    const std::string_view first = textAt_(from->index).substr(depth);
    std::size_t shared = first.size();
    const std::ptrdiff_t step = std::max<std::ptrdiff_t>((to - from) / samples, 1);
    for (const Entry* entry = to - 1; entry > from && shared > 0; entry -= std::min(step, entry - from)) {
      const std::string_view text = textAt_(entry->index).substr(depth);
      shared = std::min(shared, text.size());
      if (std::memcmp(first.data(), text.data(), shared) == 0) continue;
      const auto end = first.begin() + static_cast<std::ptrdiff_t>(shared);
      shared = static_cast<std::size_t>(std::mismatch(first.begin(), end, text.begin()).first - first.begin());
    }
    return shared;
  }

  TextAt textAt_;
  Hint hint_;
  Compare compare_;
  Entry* end_;
};

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
/// place they came in. Items are moved as bytes. Returns whether any two texts were equal.
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
  const auto textAt = [&](std::uint32_t i) { return textOf(items[i]); };
  const auto hint = [&](std::uint32_t i) { __builtin_prefetch(items + i); };
  const auto orderInto = [&](Entry* entries, std::uint32_t* order) {
    for (std::uint32_t i = 0; i < count; ++i) entries[i].index = i;
    sorting::TextSort(textAt, hint, compare, entries + count).sort(entries, entries + count, 0);
    for (std::size_t i = 0; i < count; ++i) order[i] = entries[i].index;
  };
  if (count <= sorting::kFewItems) {
    std::array<Entry, sorting::kFewItems> entries;
    std::array<std::uint32_t, sorting::kFewItems> order;
    orderInto(entries.data(), order.data());
    applyOrder(items, order.data(), count);
    return repeats;
  }
  // One room serves for the entries and what distributes them, and then for the items as they were: gathered from a
  // copy, as following the moves in place would wait for memory at each step.
  static_assert(std::is_trivially_copyable_v<Item>);
  const sorting::Room order(count * sizeof(std::uint32_t));
  const sorting::Room room(count * std::max(2 * sizeof(Entry), sizeof(Item)));
  auto* const from = order.of<std::uint32_t>();
  orderInto(room.of<Entry>(), from);
  auto* const before = room.of<Item>();
  std::copy(items, items + count, before);
  for (std::size_t i = 0; i < count; ++i) items[i] = before[from[i]];
  return repeats;
}

/// The place of an item among `count` sorted ones, or -1. `orderTo(i)` says how what is sought compares with item i:
/// negative when it comes before.
template <class Index, class OrderTo>
Index searchSorted(Index count, OrderTo orderTo) {
  Index low = 0, high = count - 1;
  while (low <= high) {
    const Index middle = low + (high - low) / 2;
    const int order = orderTo(middle);
    if (order == 0) return middle;
    if (order < 0) {
      high = middle - 1;
    } else {
      low = middle + 1;
    }
  }
  return -1;
}

}  // namespace zvtaskq
