#include "core/panel/hook_script.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "core/process/child.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

/// Whether only root and the panel's user can change it. In a folder with the sticky bit others may make things, but
/// not touch what is not theirs.
bool isTrusted(const struct stat& what) {
  if (what.st_uid != 0 && what.st_uid != getUID(kPanelUser)) return false;
  if (S_ISDIR(what.st_mode) && (what.st_mode & S_ISVTX) != 0) return true;
  const bool trustedGroup = what.st_gid == 0 || what.st_gid == getGID(kPanelUser, 0);
  return (what.st_mode & S_IWOTH) == 0 && (trustedGroup || (what.st_mode & S_IWGRP) == 0);
}

/// The folder that `path` stands in, with all links on the way resolved; empty (errno set) when there is none.
std::string realFolderOf(const char* path) {
  const std::string_view whole = path;
  const std::string folder(whole.substr(0, whole.rfind('/') + 1));
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(folder.empty() ? "." : folder.c_str(), nullptr),
                                                    std::free);
  return real == nullptr ? std::string() : std::string(real.get());
}

/// Why the script must not run; empty when it may.
std::string refusal(const char* path, const struct stat& script) {
  if (!S_ISREG(script.st_mode)) return joined(path, " is not a regular file");
  if (!isTrusted(script)) return joined(path, " can be changed by others than root");
  // An administrator may have linked one of the folders: they are looked at where they really are.
  std::string folder = realFolderOf(path);
  while (!folder.empty()) {
    struct stat what {};
    if (sys::lstat(folder.c_str(), what) != 0) break;
    if (!isTrusted(what)) return joined(folder, " can be changed by others than root");
    if (folder == "/") return "";
    folder.resize(std::max<std::size_t>(folder.rfind('/'), 1));
  }
  return joined(path, ": ", std::strerror(errno));
}

ChildPlan planOf(const char* path, const std::vector<Variable>& variables, int timeLimit, std::size_t answerLimit) {
  ChildPlan plan = ChildPlan::program(path);
  plan.identity = kRootIds;
  plan.variables = variables;
  plan.errors = ChildPlan::Stream::collect;
  plan.outputLimit = answerLimit;
  plan.timeLimit = timeLimit;
  return plan;
}

HookAnswer runScript(const ChildPlan& plan) {
  ChildResult child = runChild(plan);
  while (child.output.ends_with('\n') || child.output.ends_with('\r')) child.output.pop_back();

  HookAnswer answer;
  answer.ran = true;
  if (child.timedOut) {
    answer.error = joined("no answer within ", std::to_string(plan.timeLimit), " seconds");
  } else if (child.status == 0) {
    answer.result = std::move(child.output);
  } else {
    answer.error = child.output.empty() ? "exit status " + std::to_string(child.status) : std::move(child.output);
  }
  return answer;
}

HookAnswer runIfExists(const ChildPlan& plan) {
  const char* path = plan.path.c_str();
  HookAnswer answer;
  if (*path == '\0') return answer;
  const AsRoot root;
  struct stat script {};
  if (sys::lstat(path, script) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) answer.error = joined(path, ": ", std::strerror(errno));
    return answer;
  }
  answer.error = refusal(path, script);
  if (answer.failed()) {
    securityLog("Refusing to run the script %s as root: %s", path, answer.error.c_str());
    return answer;
  }
  return runScript(plan);
}

}  // namespace

HookAnswer executeIfExists(const char* path, const std::vector<Variable>& variables, int timeLimit,
                           std::size_t answerLimit) {
  return runIfExists(planOf(path == nullptr ? "" : path, variables, timeLimit, answerLimit));
}

HookAnswer executeWithTokens(const char* path, const ConfigFile& tokens, int timeLimit) {
  ChildPlan plan = planOf(path, variablesOf(&tokens), timeLimit, kHookAnswerLimit);
  const char* language = tokens.getValue("LANG");
  if (language != nullptr && *language != '\0') plan.language = language;
  return runIfExists(plan);
}

HookAnswer HookBudget::run(const char* path, const std::vector<Variable>& variables, int timeLimit) {
  const auto start = std::chrono::steady_clock::now();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left_).count();
  HookAnswer answer =
      executeIfExists(path, variables, static_cast<int>(std::clamp<long long>(seconds, 1, std::max(timeLimit, 1))));
  left_ -= std::chrono::steady_clock::now() - start;
  return answer;
}

std::vector<Variable> variablesOf(const ConfigFile* record) {
  std::vector<Variable> pairs;
  for (long long i = 0; record != nullptr && i < record->size(); ++i) {
    const char* name = record->getNameAt(i);
    const char* value = record->getValueAt(i);
    if (name != nullptr) pairs.emplace_back(name, value == nullptr ? "" : value);
  }
  return pairs;
}

HookAnswer executeIfExists(const char* path, const ConfigFile* variables, int timeLimit) {
  return executeIfExists(path, variablesOf(variables), timeLimit);
}

}  // namespace zvtaskq
