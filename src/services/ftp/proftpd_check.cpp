#include "services/ftp/proftpd_check.h"

#include <string_view>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/system_tool.h"

namespace zvtaskq {

namespace {

constexpr const char* kPrograms[] = {"/usr/sbin/proftpd", "/usr/local/sbin/proftpd"};
constexpr std::string_view kFatal = "fatal: ";
constexpr const char* kScript =
    "said=$(\"$@\" 2>&1); ended=$?; printf '%s\\n' \"$said\"; case $said in *'fatal: '*) exit 1;; esac; exit $ended";

/// What it calls fatal, without the moments and process numbers before it, which are others each time.
std::string complaints(const std::string& output) {
  std::string words;
  for (std::size_t from = 0; from < output.size();) {
    const std::size_t end = std::min(output.find('\n', from), output.size());
    const std::string_view line = std::string_view(output).substr(from, end - from);
    const std::size_t fatal = line.find(kFatal);
    if (fatal != std::string_view::npos) words.append(line.substr(fatal + kFatal.size())) += '\n';
    from = end + 1;
  }
  return words.empty() ? output : words;
}

}  // namespace

Verdict checkProftpd(const std::vector<StandIn>& files, std::string& words) {
  const char* program = firstTool(kPrograms);
  if (program == nullptr) {
    words = joined(kPrograms[0], " is not installed");
    return Verdict::unknown;
  }
  std::vector<std::string> arguments = {"-c", kScript, "check", program, "-t"};
  if (!sys_conf->ftpconfig.isEmpty())
    arguments.insert(arguments.end(), {"-c", std::string(sys_conf->ftpconfig.view())});
  const Verdict verdict = askServer(planSeeing(files, "/bin/sh", std::move(arguments)), program, words);
  if (verdict == Verdict::bad) words = complaints(words);
  return verdict;
}

}  // namespace zvtaskq
