// Programs of the system that lifecycle and quotas go by.
#pragma once

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

/// Deletes a system account by `userdel`. A process of his that ended a moment ago is waited for, a few seconds at
/// most: until whoever started it has noticed, the program takes it for one that runs. 0 with a line of `result`.
[[nodiscard]] int deleteSystemUser(const std::string& name, Text& result);

/// Whether a program is there to be run.
bool toolExists(const char* path);

}  // namespace zvtaskq
