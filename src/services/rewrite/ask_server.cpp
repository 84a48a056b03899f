#include "services/rewrite/ask_server.h"

#include <cerrno>
#include <cstring>

#include "core/files/paths.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

constexpr int kTimeLimit = 300;
constexpr int kNotStarted = 127;
constexpr std::size_t kLongestWords = 64UL << 10;
constexpr mode_t kMode = 0644;
constexpr const char* kUnshare = "/usr/bin/unshare";
/// Its arguments: how many files, then each with its place, then the program with its own. A web server opens all its
/// logs for the check, as many as its own unit allows; who starts the panel allows a thousand.
constexpr const char* kScript =
    "[ \"$(ulimit -H -n)\" -ge 262144 ] || ulimit -n 262144 2>/dev/null; ulimit -S -n \"$(ulimit -H -n)\"; "
    "files=$1; shift; "
    "while [ \"$files\" -gt 0 ]; do mount --bind -- \"$1\" \"$2\" || exit 99; shift 2; files=$((files - 1)); done; "
    "exec \"$@\"";

bool isJudgment(const ChildResult& child) {
  return !child.timedOut && child.status > 0 && child.status != kCannotAsk && child.status != kNotStarted;
}

}  // namespace

Verdict askServer(ChildPlan plan, const std::string& program, std::string& words) {
  plan.errors = ChildPlan::Stream::collect;
  plan.timeLimit = kTimeLimit;
  const ChildResult child = runChild(plan);
  if (child.status == 0 && !child.timedOut) return Verdict::good;
  if (isJudgment(child)) {
    words = child.output;
    return Verdict::bad;
  }
  words = joined(program, child.timedOut ? " does not end" : " cannot be run", "\n", child.output);
  return Verdict::unknown;
}

ChildPlan planSeeing(const std::vector<StandIn>& files, const std::string& program,
                     std::vector<std::string> arguments) {
  std::vector<std::string> all = {"--mount", "--", "/bin/sh", "-c", kScript, "check", std::to_string(files.size())};
  for (const StandIn& one : files) {
    all.push_back(one.file);
    all.push_back(one.place);
  }
  all.push_back(program);
  all.insert(all.end(), arguments.begin(), arguments.end());
  ChildPlan plan = ChildPlan::program(kUnshare, std::move(all));
  plan.identity = kRootIds;
  plan.outputLimit = kLongestWords;
  return plan;
}

int makeIfMissing(const std::string& path, const std::string& text, Text& result) {
  if (pathExists(path.c_str())) return 1;
  const Descriptor file(sys::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kMode));
  if (file && sys::writeAll(file.get(), text) == text.size() && sys::fchmod(file.get(), kMode) == 0) return 1;
  const std::string why = std::strerror(errno);
  return fail(result, "Unable to make ", path, ": ", why);
}

}  // namespace zvtaskq
