// Memory of many megabytes in large pages.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace zvtaskq {

constexpr std::size_t kLargePage = std::size_t{2} << 20;

/// Asks the system for large pages where memory of this place and size, all of which will be used, has room for them:
/// touching it for the first time is the larger part of what filling it costs. Nothing is promised; small memory is
/// left alone.
inline void preferLargePages(void* memory, std::size_t size) {
  const auto start = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t from = (start + kLargePage - 1) / kLargePage * kLargePage;
  const std::uintptr_t to = (start + size) / kLargePage * kLargePage;
  if (from < to) static_cast<void>(::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE));
}

/// `size` bytes from the heap, to be freed by `std::free`; null when memory is short. Those of many megabytes lie in
/// large pages from their first byte on.
inline void* roomInLargePages(std::size_t size) {
  if (size < kLargePage) return std::malloc(size);
  void* room = std::aligned_alloc(kLargePage, (size + kLargePage - 1) / kLargePage * kLargePage);
  if (room != nullptr) preferLargePages(room, size);
  return room;
}

/// As `std::realloc` of `size` bytes at `room`, of which `used` are kept, for what `roomInLargePages` may give next:
/// moving what lies in large pages fails in the system, and a copy into pages that are not asked for yet takes small
/// ones.
inline void* grownInLargePages(void* room, std::size_t used, std::size_t size) {
  if (size < kLargePage) return std::realloc(room, size);
  void* grown = roomInLargePages(size);
  if (grown == nullptr) return nullptr;
  if (used > 0) std::memcpy(grown, room, used);
  std::free(room);
  return grown;
}

}  // namespace zvtaskq
