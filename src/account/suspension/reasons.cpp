#include "account/suspension/reasons.h"

#include <algorithm>
#include <vector>

#include "core/text/split.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  for (const std::string_view word : wordsIn(text, ',')) {
    if (std::find(words.begin(), words.end(), word) == words.end()) words.push_back(word);
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
