#include "core/template/token_script.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kNameLength = 24;
constexpr std::size_t kLongestOutput = 16UL << 20;
constexpr const char* kShell = "/bin/sh";

/// The script as a file of the identity of the moment, for as long as it lives.
class ScriptFile {
 public:
  explicit ScriptFile(std::string_view text) {
    const char* chosen = sys_conf == nullptr ? nullptr : sys_conf->tmpdir.get();
    if ((chosen == nullptr || !make(chosen, text)) && !make("/tmp", text)) {
      errorLog("Unable to write the script of a template: %s", std::strerror(errno));
    }
  }
  ~ScriptFile() {
    if (!path_.empty()) static_cast<void>(sys::unlink(path_.c_str()));
  }
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;
  /// Empty when it could not be written.
  const std::string& path() const { return path_; }

 private:
  bool make(const char* folder, std::string_view text) {
    const std::string path = joined(folder, "/template_script.", getRandText(kNameLength));
    Descriptor file(sys::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0700));
    if (!file) return false;
    const std::size_t wrote = sys::writeAll(file.get(), text);
    if (wrote == text.size() && file.close() == 0) {
      path_ = path;
      return true;
    }
    const int error = errno;
    static_cast<void>(sys::unlink(path.c_str()));
    errno = error;
    return false;
  }

  std::string path_;
};

struct Interpreter {
  std::string program;
  std::string argument;
};

/// The "#!" line as the kernel reads it: a program, and the rest of the line as one argument.
Interpreter interpreterOf(std::string_view script) {
  const std::string_view line = script.starts_with("#!") ? trimmed(script.substr(2, script.find('\n') - 2)) : "";
  if (!line.starts_with('/')) return {kShell, ""};
  const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
  return {std::string(line.substr(0, end)), std::string(trimmed(line.substr(end)))};
}

/// Whom a script runs as; `kUnknownId` twice for an unknown user.
Ids scriptIds(const char* user) {
  if (realIds().user != 0) return effectiveIds();
  if (user == nullptr) return nobodyIds();
  const Ids ids = idsOf(user);
  return ids.user == kUnknownId || ids.group == kUnknownId ? Ids{kUnknownId, kUnknownId} : ids;
}

ChildPlan childFor(const ScriptPlan& script, const std::string& path, Ids ids) {
  Interpreter interpreter = interpreterOf(script.text);
  ChildPlan plan = ChildPlan::program(std::move(interpreter.program));
  if (!interpreter.argument.empty()) plan.arguments.push_back(std::move(interpreter.argument));
  plan.arguments.push_back(path);
  plan.identity = ids;
  plan.variables = variablesOf(script.variables);
  plan.workingDirectory = std::string("/");
  plan.errors = script.withErrors ? ChildPlan::Stream::collect : ChildPlan::Stream::discard;
  plan.outputLimit = kLongestOutput;
  plan.timeLimit = script.timeLimit;
  return plan;
}

}  // namespace

ScriptOutcome runScriptText(const ScriptPlan& plan) {
  ScriptOutcome outcome;
  const Ids ids = scriptIds(plan.user);
  if (ids.user == kUnknownId) {
    errorLog("Unable to run the script of a template: there is no user %s",
             plan.user == nullptr ? "nobody" : plan.user);
    return outcome;
  }
  const AsUser user(ids);
  if (!user.taken()) return outcome;
  const ScriptFile file(plan.text);
  if (file.path().empty()) return outcome;
  ChildResult child = runChild(childFor(plan, file.path(), ids));
  outcome.ran = child.status != -1;
  outcome.status = child.status;
  outcome.timedOut = child.timedOut;
  outcome.output = std::move(child.output);
  if (child.timedOut) errorLog("The script of a template did not end within %d seconds", plan.timeLimit);
  return outcome;
}

}  // namespace zvtaskq
