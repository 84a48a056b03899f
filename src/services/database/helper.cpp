#include "services/database/helper.h"

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/read/line_reader.h"
#include "core/sys/privileges.h"
#include "core/text/post_string.h"

namespace zvtaskq {

namespace {

/// What the helper says of itself begins so; an answer has no space in it.
constexpr std::string_view kWords = "zvdb: ";

bool isThere(const char* path) {
  const AsRoot root;
  return pathExists(path, PathKind::file) != 0;
}

/// The first words of the helper, or how it ended.
std::string reasonOf(const ChildResult& child, const std::string& words, const DatabaseTime& time) {
  if (child.timedOut) return joined("no answer within ", std::to_string(time.all), " seconds");
  if (!words.empty()) return words;
  return joined("zvdb left its work, with exit status ", std::to_string(child.status));
}

/// Hands the answers out to the calls, in the order of both. Returns what the helper said of itself, if anything.
std::string readAnswers(std::string_view output, std::vector<DatabaseCall>& calls) {
  std::string words;
  std::string_view line;
  ConfigFile record(nullptr);
  auto call = calls.begin();
  while (nextLine(output, line)) {
    if (line.starts_with(kWords)) {
      if (words.empty()) words = line.substr(kWords.size());
      continue;
    }
    if (call == calls.end()) break;
    record.empty();
    record.fillFromPost(line);
    if (!record.existsParam("result")) {
      if (call->take) call->take(record);
      continue;
    }
    call->isAnswered = true;
    call->isDone = record.isValue("result", "done") != 0;
    call->error = joined(record.getValue("error"));
    ++call;
  }
  return words;
}

}  // namespace

bool hasDatabases() {
  return sys_conf->mysql && isThere(sys_conf->mysqlconf);
}

DatabaseCall::DatabaseCall(std::initializer_list<std::pair<const char*, std::string_view>> pairs) {
  for (const auto& [name, value] : pairs) addPair(request, name, value);
  request += '\n';
}

int askDatabaseServer(std::vector<DatabaseCall>& calls, DatabaseTime time, Text& result) {
  if (calls.empty()) return 1;
  const std::string program = joined(sys_conf->serverpath, "/libexec/zvdb");
  if (!isThere(program.c_str())) return fail(result, program, " is not installed");
  ChildPlan plan = ChildPlan::program(program, {sys_conf->mysqlconf.orEmpty(), std::to_string(time.statement)});
  if (sys_conf->getFilename() != nullptr) plan.arguments.emplace_back(sys_conf->getFilename());
  plan.identity = kRootIds;
  plan.errors = ChildPlan::Stream::collect;
  plan.timeLimit = time.all;
  for (const DatabaseCall& call : calls) plan.inputs.push_back(call.request);
  const ChildResult child = runChild(plan);
  const std::string words = readAnswers(child.output, calls);
  return calls.back().isAnswered ? 1 : fail(result, reasonOf(child, words, time));
}

}  // namespace zvtaskq
