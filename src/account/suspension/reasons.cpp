#include "account/suspension/reasons.h"

#include <algorithm>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

namespace {

std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const std::size_t comma = std::min(text.find(','), text.size());
    const std::string_view word = trimmed(text.substr(0, comma));
    if (!word.empty() && std::find(words.begin(), words.end(), word) == words.end()) words.push_back(word);
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return words;
}

}  // namespace

std::string wordsOfBoth(std::string_view words, std::string_view more) {
  return joinedWith(",", wordsOf(joined(words, ",", more)));
}

std::string wordsWithout(std::string_view words, std::string_view others) {
  const std::vector<std::string_view> gone = wordsOf(others);
  std::vector<std::string_view> left = wordsOf(words);
  std::erase_if(left, [&](std::string_view word) { return std::find(gone.begin(), gone.end(), word) != gone.end(); });
  return joinedWith(",", left);
}

}  // namespace zvtaskq
