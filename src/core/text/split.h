// A list in one text, taken apart.
#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

/// The words of a list between its separators, in their order, without the blanks around them; what is empty then is
/// none. They are parts of `list`.
inline std::vector<std::string_view> wordsIn(std::string_view list, char separator) {
  std::vector<std::string_view> words;
  for (std::size_t from = 0; from < list.size();) {
    const std::size_t end = std::min(list.find(separator, from), list.size());
    const std::string_view word = trimmed(list.substr(from, end - from));
    if (!word.empty()) words.push_back(word);
    from = end + 1;
  }
  return words;
}

}  // namespace zvtaskq
