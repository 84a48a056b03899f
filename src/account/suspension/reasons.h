// The reasons of a suspension: words joined by ",".
#pragma once

#include <string>
#include <string_view>

namespace zvtaskq {

/// The words that are in either, each once.
std::string wordsOfBoth(std::string_view words, std::string_view more);
/// Those of the first that are not in the other.
std::string wordsWithout(std::string_view words, std::string_view others);

}  // namespace zvtaskq
