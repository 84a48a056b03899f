// Running a script that stands in a text, such as a script block of a template.
#pragma once

#include <string>
#include <string_view>

namespace zvtaskq {

class ConfigFile;

/// Seconds a script of a template may take when its caller does not say.
inline constexpr int kScriptTimeLimit = 60;

struct ScriptOutcome {
  /// It was started.
  bool ran = false;
  /// As of a child (core/process/child.h): the exit status, or the signal that killed it.
  int status = -1;
  bool timedOut = false;
  /// What it printed, at most 16 MB.
  std::string output;
};

struct ScriptPlan {
  /// The whole script. A first line "#!PROGRAM ARGUMENT" names its interpreter by an absolute path; else it is /bin/sh.
  std::string_view text;
  /// The Unix user it runs as; null means "nobody".
  const char* user = nullptr;
  /// Its environment besides the clean one, as far as `isExportableName` allows; null for none.
  const ConfigFile* variables = nullptr;
  /// Seconds, 0 for no limit.
  int timeLimit = kScriptTimeLimit;
  /// What it prints on standard error counts too; else that is thrown away.
  bool withErrors = false;
};

/// Writes the script to a file of mode 0700 that belongs to the user, in `tmpdir` or else in /tmp, runs its interpreter
/// on it in the folder "/", and deletes the file. What keeps it from running, and a time limit that struck, is told in
/// the error log. May be called under any identity, which is the same afterwards. In a process that was not started by
/// root it runs as that process's user.
ScriptOutcome runScriptText(const ScriptPlan& plan);

}  // namespace zvtaskq
