// Random numbers from the kernel's generator.
#pragma once

namespace zvtaskq {

/// Kept for callers that seed before they draw: the kernel's generator needs none.
void randseed();
/// A random integer from `low` to `high`, both included, every one equally likely; `low` when high is not above it.
int getRandNumber(int low, int high);

}  // namespace zvtaskq
