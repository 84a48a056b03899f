#include "core/sys/random.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/sys/log.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kAhead = 256;
std::array<unsigned char, kAhead> pool;
std::size_t left = 0;

void fetch() {
  std::size_t got = 0;
  while (got < pool.size()) {
    const ssize_t more = ::getrandom(pool.data() + got, pool.size() - got, 0);
    if (more < 0 && errno == EINTR) continue;
    if (more <= 0) {
      // Names that can be guessed would be worse than no run at all. Every kernel that can run us has it.
      errorLog("getrandom: %s", std::strerror(errno));
      std::abort();
    }
    got += static_cast<std::size_t>(more);
  }
  left = pool.size();
}

std::uint32_t nextNumber() {
  std::uint32_t number = 0;
  if (left < sizeof number) fetch();
  left -= sizeof number;
  std::memcpy(&number, pool.data() + left, sizeof number);
  // Used once: what is left in memory tells nothing about a name already given.
  std::memset(pool.data() + left, 0, sizeof number);
  return number;
}

}  // namespace

void randseed() {
  left = 0;
}

int getRandNumber(int low, int high, bool fresh) {
  if (high <= low) return low;
  if (fresh) randseed();
  const std::uint64_t span = static_cast<std::uint64_t>(static_cast<std::int64_t>(high) - low) + 1;
  constexpr std::uint64_t kAll = std::uint64_t{1} << 32;
  // Numbers past the last whole multiple of the span would favour the low results.
  const std::uint64_t usable = kAll - kAll % span;
  std::uint64_t number = nextNumber();
  while (number >= usable) number = nextNumber();
  return static_cast<int>(low + static_cast<std::int64_t>(number % span));
}

std::string getRandText(std::size_t length) {
  constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::string text(length, '\0');
  for (char& letter : text) letter = kLetters[getRandNumber(0, static_cast<int>(sizeof kLetters) - 2)];
  return text;
}

}  // namespace zvtaskq
