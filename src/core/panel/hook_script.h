// Scripts of the administrator that run around an operation, when there are any.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "core/sys/environment.h"

namespace zvtaskq {

class ConfigFile;

/// Seconds a hook may take when its caller does not say: long enough to send off a night's archives.
inline constexpr int kHookTimeLimit = 6 * 3600;
/// Bytes kept of what a hook prints when its caller does not say.
inline constexpr std::size_t kHookAnswerLimit = 64UL * 1024;

/// What a hook answered. Both texts are empty when there was none to run.
struct HookAnswer {
  /// A script was there, and it ran.
  bool ran = false;
  /// What it printed, when it succeeded.
  std::string result;
  /// What it printed when it failed, or "exit status N" when it printed nothing; or why it was not run.
  std::string error;
  bool failed() const { return !error.empty(); }
};

/// Runs the script at `path` as root, in the clean environment with the variables added, as far as their names may be
/// exported (`isExportableName`). What it prints counts on standard output and standard error alike, at most
/// `answerLimit` bytes of it, without the line feeds at its end. The script succeeds when it exits with 0; one that is
/// killed by the time limit (seconds, 0 for none) fails with "no answer within N seconds".
///
/// No script is success. One that somebody else than root or the panel's user could have put there or changed is
/// refused: a security-log line and an error. It must be a regular file and no link, it and every folder above it owned
/// by root or the panel's user and not writable by others (a folder with the sticky bit may be).
///
/// May be called under any identity, which is the same afterwards.
HookAnswer executeIfExists(const char* path, const std::vector<Variable>& variables, int timeLimit = kHookTimeLimit,
                           std::size_t answerLimit = kHookAnswerLimit);
/// The same with the pairs of a record as variables; null for none.
HookAnswer executeIfExists(const char* path, const ConfigFile* variables, int timeLimit = kHookTimeLimit);
/// The same with the tokens of a notice as variables, among which LANG is the panel's language, from its settings.
HookAnswer executeWithTokens(const char* path, const ConfigFile& tokens, int timeLimit);

/// The scripts of a loop over many records, with one time for all of them together.
class HookBudget {
 public:
  explicit HookBudget(int seconds) : left_(std::chrono::seconds(seconds)) {}
  /// As `executeIfExists`: the script may take what is left, a second at least and `timeLimit` at most.
  HookAnswer run(const char* path, const std::vector<Variable>& variables, int timeLimit);
  /// Nothing is left: the loop is to leave the rest to another time, and to say so.
  bool isSpent() const { return left_ <= std::chrono::steady_clock::duration::zero(); }

 private:
  std::chrono::steady_clock::duration left_;
};

/// The pairs of a record as variables for a script; none for null.
std::vector<Variable> variablesOf(const ConfigFile* record);

}  // namespace zvtaskq
