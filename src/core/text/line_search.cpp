#include "core/text/line_search.h"

#ifdef __SSE2__
#include <immintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>
#include <utility>

namespace zvtaskq {

namespace {

constexpr std::size_t kPairs = std::size_t{1} << 16;
constexpr std::ptrdiff_t kTogether = 16;
constexpr std::ptrdiff_t kMostInByte = 255;
/// What a place that turns out to be none costs, in places looked at together.
constexpr std::size_t kFalseFindCost = 8;
/// Texts that can be told apart.
constexpr std::uint32_t kMostBits = 64;

unsigned pairAt(const char* at) {
  return static_cast<unsigned>(static_cast<unsigned char>(at[0])) << 8 | static_cast<unsigned char>(at[1]);
}

#ifdef __SSE2__
__m128i bytesAt(const char* at) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

unsigned bitsOf(__m128i mask) {
  return static_cast<unsigned>(_mm_movemask_epi8(mask));
}

/// The sum of sixteen counts.
long long total(__m128i counts) {
  const __m128i halves = _mm_sad_epu8(counts, _mm_setzero_si128());
  return _mm_cvtsi128_si64(halves) + _mm_cvtsi128_si64(_mm_unpackhi_epi64(halves, halves));
}
#endif

}  // namespace

std::size_t findText(std::string_view in, std::string_view text, std::size_t from) {
#ifdef __SSE2__
  if (in.size() >= from && in.size() - from >= text.size() + sizeof(__m128i)) {
    const std::size_t middle = text.size() / 2;
    const __m128i first = _mm_set1_epi8(text.front()), half = _mm_set1_epi8(text[middle]),
                  last = _mm_set1_epi8(text.back());
    // The last places are looked at together with some that were before.
    const std::size_t lastStep = in.size() - text.size() + 1 - sizeof(__m128i);
    for (std::size_t at = from;; at = std::min(at + sizeof(__m128i), lastStep)) {
      const __m128i begins = _mm_cmpeq_epi8(bytesAt(in.data() + at), first);
      const __m128i goesOn = _mm_cmpeq_epi8(bytesAt(in.data() + at + middle), half);
      const __m128i ends = _mm_cmpeq_epi8(bytesAt(in.data() + at + text.size() - 1), last);
      for (unsigned hits = bitsOf(_mm_and_si128(_mm_and_si128(begins, goesOn), ends)); hits != 0; hits &= hits - 1) {
        const std::size_t place = at + static_cast<std::size_t>(std::countr_zero(hits));
        if (std::memcmp(in.data() + place, text.data(), text.size()) == 0) return place;
      }
      if (at == lastStep) return std::string_view::npos;
    }
  }
#endif
  return in.find(text, from);
}

LineSearch::LineSearch(std::vector<std::string> texts) : texts_(std::move(texts)) {
  findsAll_ = std::any_of(texts_.begin(), texts_.end(), [](const std::string& text) { return text.size() < 2; });
}

void LineSearch::learn(std::string_view sample) {
  probes_.clear();
  if (findsAll_) return;
  std::vector<std::uint32_t> frequency(kPairs, 0);
  for (std::size_t i = 0; i + 1 < sample.size(); ++i) ++frequency[pairAt(sample.data() + i)];
  std::vector<bool> covered(texts_.size(), false);
  while (std::find(covered.begin(), covered.end(), false) != covered.end()) {
    if (probes_.size() < kMostProbes && addProbe(frequency, sample.size(), covered)) continue;
    findsAll_ = true;
    return;
  }
}

/// Adds the pair of bytes that costs the least for each text that it stands for.
bool LineSearch::addProbe(const std::vector<std::uint32_t>& frequency, std::size_t sampled,
                          std::vector<bool>& covered) {
  std::vector<std::pair<unsigned, std::uint32_t>> holders;
  for (std::uint32_t text = 0; text < texts_.size(); ++text) {
    for (std::size_t i = 0; !covered[text] && i + 1 < texts_[text].size(); ++i) {
      holders.emplace_back(pairAt(&texts_[text][i]), text);
    }
  }
  if (holders.empty()) return false;
  std::sort(holders.begin(), holders.end());
  holders.erase(std::unique(holders.begin(), holders.end()), holders.end());
  double least = 0;
  unsigned best = 0;
  for (std::size_t from = 0, to = 0; from < holders.size(); from = to) {
    const unsigned pair = holders[from].first;
    while (to < holders.size() && holders[to].first == pair) ++to;
    const std::size_t steps = sampled / static_cast<std::size_t>(kTogether) + 1 + frequency[pair] * kFalseFindCost;
    const double cost = static_cast<double>(steps) / static_cast<double>(to - from);
    if (from > 0 && cost >= least) continue;
    least = cost;
    best = pair;
  }
  Probe probe;
  probe.first = static_cast<char>(best >> 8);
  probe.second = static_cast<char>(best & 0xff);
  for (std::uint32_t text = 0; text < texts_.size(); ++text) {
    for (std::uint32_t i = 0; !covered[text] && i + 1 < texts_[text].size(); ++i) {
      if (pairAt(&texts_[text][i]) != best) continue;
      probe.places.push_back({text, i});
      covered[text] = true;
    }
  }
  probes_.push_back(std::move(probe));
  return true;
}

/// Whether one of the texts stands around the pair of bytes at `at`, within `begin`..`end`.
bool LineSearch::confirms(const char* begin, const char* at, const char* end) const {
  return textsAround({begin, static_cast<std::size_t>(end - begin)}, at) != 0;
}

/// The texts that stand around the pair of bytes at `at`, within the line. Those from the 64th on share one bit.
std::uint64_t LineSearch::textsAround(std::string_view line, const char* at) const {
  const auto before = static_cast<std::size_t>(at - line.data());
  std::uint64_t found = 0;
  for (const Probe& probe : probes_) {
    if (at[0] != probe.first || at[1] != probe.second) continue;
    for (const Place& place : probe.places) {
      const std::string& text = texts_[place.text];
      if (before < place.offset || line.size() - before < text.size() - place.offset) continue;
      if (std::memcmp(at - place.offset, text.data(), text.size()) != 0) continue;
      found |= std::uint64_t{1} << std::min(place.text, kMostBits - 1);
    }
  }
  return found;
}

#ifdef __SSE2__
/// The pairs that are looked for, each byte sixteen times.
template <std::size_t probes>
struct LineSearch::Wanted {
  explicit Wanted(const std::vector<Probe>& from) {
    for (std::size_t i = 0; i < probes; ++i) {
      first[i] = _mm_set1_epi8(from[i].first);
      second[i] = _mm_set1_epi8(from[i].second);
    }
  }
  /// A bit for each of the sixteen places where one of them begins.
  unsigned hits(__m128i bytes, __m128i next) const {
    __m128i found = _mm_setzero_si128();
    for (std::size_t i = 0; i < probes; ++i) {
      found = _mm_or_si128(found, _mm_and_si128(_mm_cmpeq_epi8(bytes, first[i]), _mm_cmpeq_epi8(next, second[i])));
    }
    return bitsOf(found);
  }
  /// Moves `at` on to the sixteen places where one of them begins, and returns their bits. With 0 `at` stands near the
  /// end, or so far on that it is time to go on. `lines` is increased by the line feeds that were passed.
  unsigned passOver(const char*& at, const char* end, long long& lines) const {
    const __m128i feed = _mm_set1_epi8('\n');
    // The line feeds are counted in bytes, which hold so many of them.
    __m128i feeds = _mm_setzero_si128();
    const char* const stop = at + std::min((end - at - 1) / kTogether, kMostInByte) * kTogether;
    const char* here = at;
    unsigned found = 0;
    for (; here != stop; here += kTogether) {
      const __m128i bytes = bytesAt(here);
      found = hits(bytes, bytesAt(here + 1));
      if (found != 0) break;
      feeds = _mm_sub_epi8(feeds, _mm_cmpeq_epi8(bytes, feed));
    }
    at = here;
    lines += total(feeds);
    return found;
  }
  /// Moves `at` on like `passOver`, twice as fast, but not all the way. For processors that have vectors of that width.
  [[gnu::target("avx2")]] void passOverWidely(const char*& at, const char* end, long long& lines) const {
    __m256i firsts[probes], seconds[probes];
    for (std::size_t i = 0; i < probes; ++i) {
      firsts[i] = _mm256_broadcastsi128_si256(first[i]);
      seconds[i] = _mm256_broadcastsi128_si256(second[i]);
    }
    const __m256i feed = _mm256_set1_epi8('\n');
    for (bool anyFound = false; !anyFound && end - at > 2 * kTogether;) {
      __m256i feeds = _mm256_setzero_si256();
      const char* const stop = at + std::min((end - at - 1) / (2 * kTogether), kMostInByte) * 2 * kTogether;
      const char* here = at;
      for (; here != stop; here += 2 * kTogether) {
        const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(here));
        const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(here + 1));
        __m256i found = _mm256_setzero_si256();
        for (std::size_t i = 0; i < probes; ++i) {
          const __m256i begins = _mm256_cmpeq_epi8(bytes, firsts[i]);
          found = _mm256_or_si256(found, _mm256_and_si256(begins, _mm256_cmpeq_epi8(next, seconds[i])));
        }
        anyFound = _mm256_movemask_epi8(found) != 0;
        if (anyFound) break;
        feeds = _mm256_sub_epi8(feeds, _mm256_cmpeq_epi8(bytes, feed));
      }
      at = here;
      lines += total(_mm256_castsi256_si128(feeds)) + total(_mm256_extracti128_si256(feeds, 1));
    }
  }
  __m128i first[probes], second[probes];
};
#endif

template <std::size_t probes>
const char* LineSearch::findProbe(const char* from, const char* end, long long& lines) const {
  const char* at = from;
#ifdef __SSE2__
  const Wanted<probes> wanted(probes_);
  static const bool hasWideVectors = __builtin_cpu_supports("avx2");
  while (end - at > kTogether) {
    if (hasWideVectors) wanted.passOverWidely(at, end, lines);
    if (end - at <= kTogether) break;
    const unsigned places = wanted.passOver(at, end, lines);
    if (places == 0) continue;
    for (unsigned left = places; left != 0; left &= left - 1) {
      const char* const place = at + std::countr_zero(left);
      if (!confirms(from, place, end)) continue;
      lines += std::count(at, place, '\n');
      return place;
    }
    lines += std::count(at, at + kTogether, '\n');
    at += kTogether;
  }
#endif
  for (; end - at > 1; ++at) {
    if (confirms(from, at, end)) return at;
    lines += *at == '\n' ? 1 : 0;
  }
  if (at < end && *at == '\n') ++lines;
  return end;
}

template <std::size_t probes>
std::uint64_t LineSearch::textsInLine(std::string_view line, const char* found, const char* end) const {
  const char* const lineEnd = line.data() + line.size();
  const char* at = found;
  std::uint64_t texts = 0;
#ifdef __SSE2__
  const Wanted<probes> wanted(probes_);
  for (; at < lineEnd && end - at > kTogether; at += kTogether) {
    for (unsigned hits = wanted.hits(bytesAt(at), bytesAt(at + 1)); hits != 0; hits &= hits - 1) {
      const char* const place = at + std::countr_zero(hits);
      if (lineEnd - place < 2) return texts;
      texts |= textsAround(line, place);
    }
  }
#endif
  for (; lineEnd - at > 1; ++at) texts |= textsAround(line, at);
  return texts;
}

/// Calls `work` with the number of probes as a constant, of which loops can be unrolled.
template <class Work>
auto LineSearch::withProbes(Work work) const {
  using std::integral_constant;
  switch (probes_.size()) {
    case 1:
      return work(integral_constant<std::size_t, 1>());
    case 2:
      return work(integral_constant<std::size_t, 2>());
    case 3:
      return work(integral_constant<std::size_t, 3>());
    case 4:
      return work(integral_constant<std::size_t, 4>());
    case 5:
      return work(integral_constant<std::size_t, 5>());
    case 6:
      return work(integral_constant<std::size_t, 6>());
    case 7:
      return work(integral_constant<std::size_t, 7>());
    default:
      return work(integral_constant<std::size_t, kMostProbes>());
  }
}

const char* LineSearch::find(const char* from, const char* end, long long& lines) const {
  if (findsAll_) return from;
  if (probes_.empty()) return end;
  return withProbes([&](auto probes) { return findProbe<probes()>(from, end, lines); });
}

std::uint64_t LineSearch::textsIn(std::string_view line, const char* found, const char* end) const {
  if (findsAll_ || probes_.empty() || texts_.size() > kMostBits) return ~std::uint64_t{0};
  return withProbes([&](auto probes) { return textsInLine<probes()>(line, found, end); });
}

}  // namespace zvtaskq
