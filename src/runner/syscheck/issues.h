// What the self-check found, for the notice to the administrators.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace zvtaskq {

/// In the order in which they are told.
enum class Concern {
  services,
  openFiles,
  settings,
  files,
  templates,
  accounts,
  records,
  certificates,
  leftovers,
  clock,
  space,
  count
};

class Issues {
 public:
  /// Lines that are told of one kind; what goes beyond is counted.
  static constexpr std::size_t kMostOfAKind = 20;
  /// Bytes of a line that are told.
  static constexpr std::size_t kLongestLine = 600;

  /// One thing: what is wrong with what, and what to do, both without a full stop at the end. Control characters in
  /// either are written as "\xNN". Nothing secret may be in them.
  void add(Concern kind, std::string_view what, std::string_view remedy);
  /// Whether one more of that kind would only be counted.
  bool isFull(Concern kind) const { return of(kind).lines.size() >= kMostOfAKind; }
  bool isEmpty() const;
  /// For people: a title a kind, a line an issue. Empty when there is none.
  std::string text() const;

 private:
  struct Kind {
    std::vector<std::string> lines;
    std::size_t more = 0;
  };
  const Kind& of(Concern kind) const { return kinds_[static_cast<std::size_t>(kind)]; }

  std::array<Kind, static_cast<std::size_t>(Concern::count)> kinds_;
};

}  // namespace zvtaskq
