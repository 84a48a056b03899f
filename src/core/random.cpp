#include "core/random.h"

#include <sys/random.h>

#include <cstdint>

namespace zvtaskq {

void randseed() {}

int getRandNumber(int low, int high) {
  if (high <= low) return low;
  const std::uint64_t span = static_cast<std::uint64_t>(static_cast<std::int64_t>(high) - low) + 1;
  // Draws from the incomplete last stretch of the range would favour low numbers.
  const std::uint64_t fair = UINT64_MAX - UINT64_MAX % span;
  std::uint64_t drawn = 0;
  do {
    if (::getrandom(&drawn, sizeof drawn, 0) != sizeof drawn) return low;
  } while (drawn >= fair);
  return static_cast<int>(low + static_cast<std::int64_t>(drawn % span));
}

}  // namespace zvtaskq
