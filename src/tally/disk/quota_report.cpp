#include "tally/disk/quota_report.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace zvtaskq {

namespace {

constexpr std::string_view kBlanks = " \t";

/// Cuts the next word off the front; empty at the end.
std::string_view nextWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

bool readNumber(std::string_view word, unsigned long long& number) {
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return !word.empty() && error == std::errc() && end == word.data() + word.size();
}

/// Used, soft and hard limit.
struct Limits {
  unsigned long long used = 0;
  unsigned long long soft = 0;
  unsigned long long hard = 0;

  bool read(std::string_view& text) {
    return readNumber(nextWord(text), used) && readNumber(nextWord(text), soft) && readNumber(nextWord(text), hard);
  }
  bool exceeded() const { return (soft > 0 && used > soft) || (hard > 0 && used >= hard); }
};

bool isUser(std::string_view word) {
  return !word.empty() && word.front() != '#';
}

bool isFlag(char c) {
  return c == '+' || c == '-';
}

std::size_t wordsIn(std::string_view text) {
  std::size_t words = 0;
  while (!nextWord(text).empty()) ++words;
  return words;
}

}  // namespace

bool readQuotaRow(std::string_view line, QuotaRow& row) {
  row.user = nextWord(line);
  const std::string_view flags = nextWord(line);
  if (!isUser(row.user) || flags.size() != 2 || !isFlag(flags[0]) || !isFlag(flags[1])) return false;
  Limits blocks, inodes;
  if (!blocks.read(line)) return false;
  // Both times of grace are there, only the one of what is over, or none.
  const std::size_t left = wordsIn(line);
  if (left < 3 || left > 5) return false;
  if (left == 5 || (left == 4 && flags[0] == '+')) nextWord(line);
  if (!inodes.read(line)) return false;
  row.used = {blocks.used, inodes.used};
  row.isOver = flags != "--";
  return true;
}

bool readXfsQuotaRow(std::string_view line, QuotaRow& row) {
  row.user = nextWord(line);
  Limits blocks, inodes;
  if (!isUser(row.user) || !blocks.read(line)) return false;
  const std::size_t graceEnd = line.find(']');
  if (graceEnd == std::string_view::npos) return false;
  line.remove_prefix(graceEnd + 1);
  if (!inodes.read(line)) return false;
  row.used = {blocks.used, inodes.used};
  row.isOver = blocks.exceeded() || inodes.exceeded();
  return true;
}

}  // namespace zvtaskq
