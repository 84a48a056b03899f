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
  /// Lines that are told of one kind; what goes beyond is counted. Accounts share them: no account's lines keep those
  /// of others back, nor what is about no account.
  static constexpr std::size_t kMostOfAKind = 20;
  /// Bytes of a line that are told.
  static constexpr std::size_t kLongestLine = 600;

  /// One thing: what is wrong with what, and what to do, both without a full stop at the end. Control characters in
  /// either are written as "\xNN". Nothing secret may be in them. `account` is whose it is; empty for nobody's.
  void add(Concern kind, std::string_view what, std::string_view remedy, std::string_view account = {});
  /// Whether one more of that kind would only be counted, whoever's it is.
  bool isFull(Concern kind) const;
  bool isEmpty() const;
  /// For people: a title a kind, a line an issue. Empty when there is none.
  std::string text() const;

 private:
  struct Line {
    std::string text;
    std::string account;
  };
  struct Kind {
    std::vector<Line> lines;
    std::size_t more = 0;
  };
  static std::size_t countOf(const Kind& kind, std::string_view account);
  /// The last line of the account that has the most of them, two at least.
  static std::vector<Line>::const_iterator lineToSpare(const Kind& kind);

  std::array<Kind, static_cast<std::size_t>(Concern::count)> kinds_;
};

}  // namespace zvtaskq
