// Random numbers and names from the kernel. Fit for names that must not be guessed.
#pragma once

#include <cstddef>
#include <string>

namespace zvtaskq {

/// Throws away what was fetched ahead, so that a process that was copied does not repeat the numbers of the other.
void randseed();

/// A number from `low` to `high`, both included, each equally likely. `low` when high is not above it. With
/// `fresh` nothing fetched ahead is used.
int getRandNumber(int low, int high, bool fresh = false);

/// `length` characters of [a-z0-9], for names and tokens.
std::string getRandText(std::size_t length);

}  // namespace zvtaskq
