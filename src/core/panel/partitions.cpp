#include "core/panel/partitions.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string>

#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/record/config_file.h"

namespace zvtaskq {

namespace {

constexpr int kTableTime = 30;
constexpr const char* kUseColumn = "Use";

/// The share stands first and the mount point last, so that no name in between (a device may be called anything by
/// whoever mounts it) can pass for either. Waiting mounts would come to life by being looked at.
const char* const kTableTool = "/bin/df";
const char* const kTableOptions[] = {"--all", "--exclude-type=autofs", "--output=pcent,target"};

/// Takes " 95% /mount point" apart.
bool splitRow(std::string_view row, int& percent, std::string_view& mountPoint) {
  row.remove_prefix(std::min(row.find_first_not_of(' '), row.size()));
  const auto [end, error] = std::from_chars(row.data(), row.data() + row.size(), percent);
  if (error != std::errc() || percent < 0) return false;
  row.remove_prefix(static_cast<std::size_t>(end - row.data()));
  if (!row.starts_with("% /")) return false;
  mountPoint = row.substr(2);
  return true;
}

}  // namespace

int parsePartitionUsage(std::string_view table, ConfigFile& usage) {
  int taken = 0;
  std::string_view row;
  while (nextLine(table, row)) {
    int percent = 0;
    std::string_view mountPoint;
    if (!splitRow(row, percent, mountPoint)) continue;
    ConfigFile columns(nullptr);
    columns.setParam(kUseColumn, percent);
    const Text record = columns.createPostString(0);
    usage.setParam(std::string(mountPoint).c_str(), record);
    ++taken;
  }
  return taken;
}

int readPartitionUsage(ConfigFile& usage) {
  ChildPlan plan = ChildPlan::program(kTableTool, {std::begin(kTableOptions), std::end(kTableOptions)});
  plan.identity = kRootIds;
  // What cannot be looked at (somebody's own mount) is told on standard error and makes the status 1, but the rest of
  // the table is good.
  plan.errors = ChildPlan::Stream::discard;
  plan.timeLimit = kTableTime;
  const ChildResult child = runChild(plan);
  return !child.timedOut && parsePartitionUsage(child.output, usage) > 0 ? 1 : 0;
}

}  // namespace zvtaskq
