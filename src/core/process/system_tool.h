// Programs of the system that are run as root, for what they say and do in a moment.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

/// How such a program ended.
struct ToolAnswer {
  int status = -1;
  /// What it printed, standard error with it, as one line for messages.
  std::string words;
  /// The same as it was printed, and whether there was more than is kept.
  std::string output;
  bool isCut = false;
  bool succeeded() const { return status == 0; }
};

/// Runs a program as root, without a shell, feeding it `input`, for a minute at most. Works under any identity, which
/// is the same afterwards.
ToolAnswer runTool(const char* path, std::vector<std::string> arguments, const std::string& input = "");
/// The same, with its failure as a line of `result`. 0 then.
[[nodiscard]] int useTool(const char* path, std::vector<std::string> arguments, Text& result,
                          const std::string& input = "");

/// Whether a program is there to be run.
bool toolExists(const char* path);
/// The first program of a list that is there to be run (null entries are passed over); null when there is none.
const char* firstTool(std::span<const char* const> paths);

}  // namespace zvtaskq
