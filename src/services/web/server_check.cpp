#include "services/web/server_check.h"

#include "core/process/system_tool.h"

namespace zvtaskq {

namespace {

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
  return askServer(planSeeing(files, program, {checker.option}), program, words);
}

}  // namespace zvtaskq
