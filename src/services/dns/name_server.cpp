#include "services/dns/name_server.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/process/system_tool.h"

namespace zvtaskq {

namespace {

constexpr const char* kControl[] = {"/usr/sbin/rndc", "/usr/bin/rndc"};
constexpr int kTimeLimit = 20;
constexpr std::size_t kLongestWords = 400;

/// The words of the first line that is an SOA record's data.
std::vector<std::string> soaWords(const std::string& output) {
  std::vector<std::string> words;
  std::size_t from = 0;
  const std::string line = output.substr(0, output.find('\n'));
  while (from < line.size()) {
    const std::size_t end = std::min(line.find(' ', from), line.size());
    if (end > from) words.push_back(line.substr(from, end - from));
    from = end + 1;
  }
  return words;
}

}  // namespace

int tellNameServer(std::vector<std::string> command, Text& result) {
  const char* program = firstTool(kControl);
  ChildPlan plan = ChildPlan::program(program == nullptr ? kControl[0] : program, std::move(command));
  plan.identity = kRootIds;
  plan.errors = ChildPlan::Stream::collect;
  plan.timeLimit = kTimeLimit;
  const ChildResult child = runChild(plan);
  if (child.status == 0 && !child.timedOut) return 1;
  const std::string words = printable(trimmed(std::string_view(child.output).substr(0, kLongestWords)));
  return fail(result, program, ": ", child.timedOut ? "no answer" : words);
}

ServedZone servedZone(const std::string& server, const std::string& zone, bool& answered) {
  const std::size_t port = server.find('#');
  ChildPlan plan = ChildPlan::program(
      sys_conf->dig.orEmpty(),
      {joined("@", server.substr(0, port)), "-p", port == std::string::npos ? "53" : server.substr(port + 1), "+short",
       "+norecurse", "+time=2", "+tries=1", "-t", "SOA", "-q", joined(zone, ".")});
  plan.identity = nobodyIds();
  plan.errors = ChildPlan::Stream::discard;
  plan.timeLimit = kTimeLimit;
  const ChildResult child = runChild(plan);
  answered = child.status == 0 && !child.timedOut;
  const std::vector<std::string> words = answered ? soaWords(child.output) : std::vector<std::string>();
  constexpr std::size_t kWords = 7;
  unsigned serial = 0;
  if (words.size() != kWords) return {};
  std::from_chars(words[2].data(), words[2].data() + words[2].size(), serial);
  return {serial, words[0].substr(0, words[0].find_last_not_of('.') + 1)};
}

bool isAsNew(unsigned long serial, unsigned long as) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(serial) - static_cast<std::uint32_t>(as)) >= 0;
}

}  // namespace zvtaskq
