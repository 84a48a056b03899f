#include "core/tables/seeded_hash.h"

#include <climits>
#include <cstring>

#include "core/sys/random.h"

namespace zvtaskq {

namespace {

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

SeededHash::SeededHash() : seed_(drawnNumber() | 1) {}

std::uint64_t SeededHash::operator()(std::string_view text) const {
  std::uint64_t hash = seed_ ^ text.size();
  const char* p = text.data();
  std::size_t left = text.size();
  for (; left >= sizeof hash; left -= sizeof hash, p += sizeof hash) {
    std::uint64_t part = 0;
    std::memcpy(&part, p, sizeof part);
    hash = mix(hash ^ part, kOddA ^ seed_);
  }
  std::uint64_t part = 0;
  if (left > 0) std::memcpy(&part, p, left);
  return mix(hash ^ part, kOddB ^ seed_);
}

}  // namespace zvtaskq
