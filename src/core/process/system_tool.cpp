#include "core/process/system_tool.h"

#include <unistd.h>

#include <algorithm>

#include "core/process/child.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr int kTimeLimit = 60;
/// More than anybody's crontab.
constexpr std::size_t kMostOutput = 16UL << 20;
constexpr std::size_t kLongestWords = 400;

std::string oneLineOf(const ChildResult& child) {
  std::string words = printable(trimmed(std::string_view(child.output).substr(0, kLongestWords)));
  while (words.ends_with("\\x0A")) words.resize(words.size() - 4);
  if (child.timedOut) return "no answer within " + std::to_string(kTimeLimit) + " seconds";
  return words.empty() ? "exit status " + std::to_string(child.status) : words;
}

}  // namespace

ToolAnswer runTool(const char* path, std::vector<std::string> arguments, const std::string& input) {
  ChildPlan plan = ChildPlan::program(text_detail::part(path).data() == nullptr ? "" : path, std::move(arguments));
  plan.identity = kRootIds;
  plan.errors = ChildPlan::Stream::collect;
  plan.outputLimit = kMostOutput;
  plan.timeLimit = kTimeLimit;
  if (!input.empty()) plan.inputs.push_back(input);
  ChildResult child = runChild(plan);
  ToolAnswer answer{child.timedOut ? -1 : child.status, oneLineOf(child), "", child.output.size() >= kMostOutput};
  answer.output = std::move(child.output);
  return answer;
}

int useTool(const char* path, std::vector<std::string> arguments, Text& result, const std::string& input) {
  const ToolAnswer answer = runTool(path, std::move(arguments), input);
  return answer.succeeded() ? 1 : fail(result, text_detail::part(path), ": ", answer.words);
}

bool toolExists(const char* path) {
  const AsRoot root;
  return path != nullptr && ::access(path, X_OK) == 0;
}

const char* firstTool(std::span<const char* const> paths) {
  const auto found = std::find_if(paths.begin(), paths.end(), toolExists);
  return found == paths.end() ? nullptr : *found;
}

}  // namespace zvtaskq
