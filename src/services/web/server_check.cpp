#include "services/web/server_check.h"

#include <cerrno>
#include <cstring>

#include "core/files/paths.h"
#include "core/process/system_tool.h"
#include "core/sys/sys.h"
#include "services/rewrite/ask_server.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestWords = 64UL << 10;
constexpr mode_t kMode = 0644;
constexpr const char* kUnshare = "/usr/bin/unshare";
/// Its arguments: the program, its option, then a file and its place by turns.
constexpr const char* kScript =
    "program=$1 option=$2; shift 2; "
    "while [ $# -gt 0 ]; do mount --bind -- \"$1\" \"$2\" || exit 99; shift 2; done; exec \"$program\" \"$option\"";

struct Checker {
  const char* programs[3];
  const char* option;
};
/// In the order of `WebServer`.
constexpr Checker kCheckers[] = {
    {{"/usr/sbin/apachectl", "/usr/sbin/apache2ctl", "/usr/sbin/httpd"}, "-t"},
    {{"/usr/sbin/nginx", "/usr/local/sbin/nginx", "/usr/local/nginx/sbin/nginx"}, "-t"},
};

}  // namespace

Verdict checkServer(WebServer server, const std::vector<StandIn>& files, std::string& words) {
  const Checker& checker = kCheckers[static_cast<std::size_t>(server)];
  const char* program = firstTool(checker.programs);
  if (program == nullptr) {
    words = joined(checker.programs[0], " is not installed");
    return Verdict::unknown;
  }
  std::vector<std::string> arguments = {"--mount", "--", "/bin/sh", "-c", kScript, "check", program, checker.option};
  for (const StandIn& one : files) {
    arguments.push_back(one.file);
    arguments.push_back(one.place);
  }
  ChildPlan plan = ChildPlan::program(kUnshare, std::move(arguments));
  plan.identity = kRootIds;
  plan.outputLimit = kLongestWords;
  return askServer(std::move(plan), program, words);
}

int makeIfMissing(const std::string& path, const std::string& text, Text& result) {
  if (pathExists(path.c_str())) return 1;
  const Descriptor file(sys::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kMode));
  if (file && sys::writeAll(file.get(), text) == text.size() && sys::fchmod(file.get(), kMode) == 0) return 1;
  const std::string why = std::strerror(errno);
  return fail(result, "Unable to make ", path, ": ", why);
}

}  // namespace zvtaskq
