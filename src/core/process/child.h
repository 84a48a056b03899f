// One child process: as whom it runs, what it is fed, what is read of it, how long it may take, how it ended.
//
// Nothing else of the program forks or starts another. A child
// - is the wanted user for good: real, effective and saved ids, no supplementary groups, verified; when that fails
//   it does not run at all,
// - starts with every signal at its default and none blocked, in a session of its own, with umask 022 and the limits
// that
//   `keepLimitsForChildren` found: what it starts in turn may be a service that lives on,
// - has no descriptor above 2, and sees the clean environment of core/sys/environment.h.
// Feeding and collecting are polled together, so that neither a child that floods nor one that does not listen can
// block the run. A time limit ends the child's whole process group, or the waiting for it alone.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "core/sys/environment.h"
#include "core/sys/identity.h"
#include "core/sys/sys.h"

namespace zvtaskq {

/// What to run and how. Start from `ChildPlan::shell` or `ChildPlan::program`.
struct ChildPlan {
  /// `command` through "/bin/sh -c". Nothing that somebody else chose may stand in it unquoted.
  static ChildPlan shell(std::string command);
  /// A program by its path, with its arguments (argument zero, the path itself, is put in front).
  static ChildPlan program(std::string path, std::vector<std::string> arguments = {});

  /// The path of the program.
  std::string path;
  /// All arguments, number zero included.
  std::vector<std::string> arguments;
  /// What log lines call it.
  std::string name;
  /// Whether it was asked for by path rather than through the shell (the two failure messages differ).
  bool direct = false;

  /// As whom; nothing means the effective identity at the start.
  std::optional<Ids> identity;
  /// Variables added to the clean environment, as far as `isExportableName` allows.
  std::vector<Variable> variables;
  /// The clean environment's LANG. Only the settings may choose another.
  std::string language = "C";
  /// The environment of this process instead of the clean one.
  bool currentEnvironment = false;
  /// Where it runs; empty means the working directory of this process. One that cannot be entered is a failed start.
  std::string workingDirectory;

  /// Texts for its standard input, one after another; then it reads end of file.
  std::vector<std::string> inputs;
  /// A descriptor to read from instead, which stays the caller's; -1 for none.
  int inputDescriptor = -1;

  enum class Stream { inherit, collect, discard };
  /// What happens to its standard output and standard error.
  Stream output = Stream::collect;
  Stream errors = Stream::inherit;
  /// A descriptor that takes its standard output instead, which stays the caller's; -1 for none.
  int outputDescriptor = -1;
  /// Bytes kept of what is collected. The rest is read and dropped, with one error-log line.
  std::size_t outputLimit = 64UL * 1024 * 1024;
  /// Milliseconds to let it work before the first read.
  int settleTime = 0;

  /// Seconds it may take in all, 0 for as long as it likes.
  int timeLimit = 0;
  enum class AtLimit { kill, leave };
  /// What happens to it then. One that is left goes on with all that it started, on its own: nothing more of it is read
  /// or waited for.
  AtLimit atLimit = AtLimit::kill;
};

struct ChildResult {
  /// The exit status 0 to 255, the number of the signal that killed it, 127 when it could not be started, -1 when
  /// there was no child (no pipe, no process), or it could not be waited for or was left behind.
  int status = -1;
  /// What was collected, standard output and error in the order in which they came.
  std::string output;
  /// The time limit struck.
  bool timedOut = false;
};

/// A started child. It must be finished; one that is dropped is killed and waited for.
class Child {
 public:
  Child() = default;
  Child(Child&& other) noexcept;
  Child& operator=(Child&& other) = delete;
  ~Child();

  /// Starts it. When there is no pipe or no process, an error-log line says so and nothing is left behind. The
  /// identity of this process is untouched, and may be any.
  static Child start(const ChildPlan& plan);
  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }

  /// Feeds, collects and waits. Failures that the child met before its program ran are logged here. When the child
  /// has ended but something it started holds its output open, that is waited for 10 seconds more.
  [[nodiscard]] ChildResult finish();

 private:
  friend class ChildTalk;
  pid_t pid_ = -1;
  std::string name_;
  bool direct_ = false;
  Ids identity_{};
  std::vector<std::string> inputs_;
  std::size_t outputLimit_ = 0;
  int settleTime_ = 0;
  int timeLimit_ = 0;
  ChildPlan::AtLimit atLimit_ = ChildPlan::AtLimit::kill;
  std::chrono::steady_clock::time_point startedAt_;
  /// Our ends: to its standard input, from its output, and from its reports about its start.
  Descriptor in_;
  Descriptor out_;
  Descriptor report_;
};

/// Notes the limits of this process (core files, open files) as those of every child to come. For the very start,
/// before they are changed.
void keepLimitsForChildren();

/// Makes this process one that leaves no core file and that no other of its ids may look into. The hard limit of core
/// files stays, so that a service started from here can have them.
void forbidDumps();

/// Start and finish in one.
[[nodiscard]] ChildResult runChild(const ChildPlan& plan);

/// Runs `work` in a process of its own that nobody waits for, under the present identity and in its own session.
/// What the work returns is its exit status; it leaves without running any destructor of this process. It has none of
/// the descriptors of this process, and so none of its locks; 0 to 2 lead nowhere. What an object of this process made
/// before keeps a number of must not be used. 0 with an error-log line when there is no process to be had.
[[nodiscard]] int runDetached(int (*work)(void*), void* argument);

/// Waits until the child ends. Returns its exit status, or the number of the signal that killed it (error log and
/// debug "pid %d killed by signal %d (%s)"); a stop or a continuation is a debug line and goes on waiting. -1 with
/// "wait error on %s: %s" when the child cannot be waited for. `status` gets the raw wait status.
int do_waitpid(pid_t pid, int& status, const char* name);

}  // namespace zvtaskq
