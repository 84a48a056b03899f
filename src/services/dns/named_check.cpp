#include "services/dns/named_check.h"

#include <algorithm>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/system_tool.h"
#include "services/dns/zone_files.h"
#include "services/rewrite/ask_server.h"

namespace zvtaskq {

namespace {

constexpr const char* kPrograms[] = {"/usr/bin/named-checkconf", "/usr/sbin/named-checkconf"};

/// What it says, but for the zones that are well.
std::string complaints(const std::string& output) {
  std::string words;
  std::size_t from = 0;
  while (from < output.size()) {
    const std::size_t end = std::min(output.find('\n', from), output.size());
    const std::string_view line = std::string_view(output).substr(from, end - from);
    if (line.find(": loaded serial ") == std::string_view::npos) words.append(line) += '\n';
    from = end + 1;
  }
  return words;
}

Verdict ask(const char* program, std::vector<std::string> arguments, std::string& words) {
  ChildPlan plan = ChildPlan::program(program, std::move(arguments));
  plan.identity = nameServerIds();
  const Verdict verdict = askServer(std::move(plan), program, words);
  if (verdict != Verdict::good) words = complaints(words);
  return verdict;
}

Verdict checkEach(const Trial& trial, const char* program, std::string& words) {
  for (const TrialFile* file : trial.fresh) {
    const Verdict verdict = ask(program, {"-i", "local", zoneIn(file->path), file->place}, words);
    if (verdict != Verdict::good) return verdict;
  }
  return Verdict::good;
}

}  // namespace

Verdict checkZones(const Trial& trial, std::string& words) {
  const char* program = firstTool(kPrograms);
  if (program == nullptr) {
    words = "named-checkconf is not installed";
    return Verdict::unknown;
  }
  // Without a zone in question it is the clauses that are asked about.
  std::vector<std::string> arguments = {trial.list};
  if (!trial.fresh.empty()) arguments.insert(arguments.begin(), "-z");
  const Verdict verdict = ask(program, std::move(arguments), words);
  const char* each = sys_conf->named_checkzone;
  if (verdict != Verdict::good || each == nullptr || *each == '\0') return verdict;
  return checkEach(trial, each, words);
}

}  // namespace zvtaskq
