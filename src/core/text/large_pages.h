// Memory of many megabytes in large pages.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace zvtaskq {

/// Asks the system for large pages where memory of this place and size, all of which will be used, has room for them:
/// touching it for the first time is the larger part of what filling it costs. Nothing is promised; small memory is
/// left alone.
inline void preferLargePages(void* memory, std::size_t size) {
  constexpr std::uintptr_t page = std::uintptr_t{2} << 20;
  const auto start = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t from = (start + page - 1) / page * page, to = (start + size) / page * page;
  if (from < to) static_cast<void>(::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE));
}

}  // namespace zvtaskq
