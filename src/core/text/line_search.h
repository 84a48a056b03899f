// Finding the few lines of a large text that hold one of some texts, at a speed near that of reading it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zvtaskq {

/// Where `text`, which is not empty, first stands in `in` at or behind `from`; std::string_view::npos when it does not.
/// In a line this is several times as fast as what the library has, which goes by the first byte alone.
std::size_t findText(std::string_view in, std::string_view text, std::size_t from = 0);

/// Two neighbouring bytes of each text are looked for in sixteen places at once. Which two is decided by a sample of
/// what is searched: those that are rare in it, and shared by many of the texts.
class LineSearch {
 public:
  /// None of the texts is empty; with none at all nothing is found.
  explicit LineSearch(std::vector<std::string> texts);

  /// Chooses the bytes to look for by a sample of what will be searched. Called before the first `find`.
  void learn(std::string_view sample);
  /// The first place in `from`..`end` that lies within one of the texts, `end` when none does. `lines` is increased by
  /// the line feeds before that place.
  const char* find(const char* from, const char* end, long long& lines) const;
  /// Which of the texts stand in a line: a bit for each of the first 64, by their numbers, and all bits when that
  /// cannot be told so fast. `found` is what `find` gave for the line; up to `end`, which is behind the line, may be
  /// read.
  std::uint64_t textsIn(std::string_view line, const char* found, const char* end) const;

 private:
  static constexpr std::size_t kMostProbes = 8;
  /// A text, and where in it the bytes of a probe stand.
  struct Place {
    std::uint32_t text;
    std::uint32_t offset;
  };
  struct Probe {
    char first = 0;
    char second = 0;
    std::vector<Place> places;
  };

  bool addProbe(const std::vector<std::uint32_t>& frequency, std::size_t sampled, std::vector<bool>& covered);
  bool confirms(const char* begin, const char* at, const char* end) const;
  std::uint64_t textsAround(std::string_view line, const char* at) const;
  template <std::size_t probes>
  std::uint64_t textsInLine(std::string_view line, const char* found, const char* end) const;
  template <std::size_t probes>
  struct Wanted;
  template <class Work>
  auto withProbes(Work work) const;
  template <std::size_t probes>
  const char* findProbe(const char* from, const char* end, long long& lines) const;

  std::vector<std::string> texts_;
  std::vector<Probe> probes_;
  /// The texts have too little in common, or one is a single byte: every line is a find.
  bool findsAll_ = false;
};

}  // namespace zvtaskq
