// Which key was meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zvtaskq {

/// The known name that differs least from `name`, in letters put in, left out, changed, or exchanged with their
/// neighbour; capitals do not count. Empty when none is near: more than a third of its letters, and three at most.
std::string nearestName(std::string_view name, const std::vector<std::string_view>& known);

}  // namespace zvtaskq
