#include "core/process/child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "core/process/launch.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/random.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {

constexpr int kReportDescriptor = 3;
constexpr int kSignals = 64;
constexpr std::size_t kSignalSetBytes = kSignals / 8;
constexpr rlim_t kMostDescriptors = 1 << 20;
/// What programs expect to start with: those that want to be strict narrow it themselves.
constexpr mode_t kUsualUmask = 022;

struct KeptLimit {
  int resource;
  rlimit value;
};
KeptLimit keptLimits[] = {{RLIMIT_CORE, {}}, {RLIMIT_NOFILE, {}}};
bool limitsAreKept = false;

void tell(int report, const ChildReport& what) {
  // When nobody listens any more there is nobody to tell.
  static_cast<void>(!::write(report, &what, sizeof what));
}

/// Every signal at its default, the two that the C library hides included: an ignored signal would outlive the exec.
void resetSignals() {
  constexpr long kAllDefault[8] = {};
  for (int number = 1; number <= kSignals; ++number) {
    ::syscall(SYS_rt_sigaction, number, kAllDefault, nullptr, kSignalSetBytes);
  }
}

void unblockSignals() {
  constexpr unsigned char kNone[kSignalSetBytes] = {};
  constexpr int kReplaceMask = 2;
  ::syscall(SYS_rt_sigprocmask, kReplaceMask, kNone, nullptr, kSignalSetBytes);
}

void placeStreams(const ChildLaunch& launch) {
  FailLater firstDup = launch.firstDup;
  for (int number = 0; number < 3; ++number) {
    const int source = launch.streams[number];
    if (source < 0) continue;
    if (!firstDup.take() && ::dup2(source, number) == number) continue;
    const int output = launch.streams[1] >= 0 ? 1 : 2;
    tell(launch.report, {ChildReport::Step::dup, errno, launch.streams[0], 0, launch.streams[output], output});
  }
  // A program that finds one of the three closed would open its first file there.
  for (int number = 0; number < 3; ++number) {
    if (::fcntl(number, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDWR | O_NOCTTY));
  }
}

/// Closes all descriptors from `first` on but `kept`, which may be below it.
void closeFrom(int first, int kept) {
  if (kept < first && ::syscall(SYS_close_range, first, ~0U, 0) == 0) return;
  struct rlimit limit {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur > kMostDescriptors) limit.rlim_cur = kMostDescriptors;
  for (int number = first; number < static_cast<int>(limit.rlim_cur); ++number) {
    if (number != kept) ::close(number);
  }
}

/// Leaves 0 to 2 and the report, and returns the report's new number.
int closeTheRest(int report) {
  int kept = report;
  if (report != kReportDescriptor && ::dup3(report, kReportDescriptor, O_CLOEXEC) == kReportDescriptor) {
    kept = kReportDescriptor;
  }
  closeFrom(kept == kReportDescriptor ? kReportDescriptor + 1 : kReportDescriptor, kept);
  return kept;
}

/// A file or lock of this process that a longer-lived one holds too would stay open or taken; and who waits for the end
/// of what we print would wait for that one as well.
void leaveDescriptors() {
  // Both remember a number that is about to be another file's.
  ::closelog();
  setLocationTracker(-1);
  const int nowhere = ::open("/dev/null", O_RDWR | O_NOCTTY);
  for (int number = 0; number < 3; ++number) ::dup2(nowhere, number);
  closeFrom(3, -1);
}

/// A hard limit that was lowered can be raised again by root alone.
void restoreLimits() {
  if (!limitsAreKept) return;
  if (::syscall(SYS_geteuid) != 0) static_cast<void>(::syscall(SYS_setresuid, -1, 0, -1));
  for (const KeptLimit& kept : keptLimits) ::setrlimit(static_cast<__rlimit_resource_t>(kept.resource), &kept.value);
}

[[noreturn]] void giveUp(int report, ChildReport::Step step) {
  tell(report, {step, errno, 0, 0, 0, 0});
  ::_exit(127);
}

/// Async-signal-safe, and safe in a child that still shares its parent's memory.
[[noreturn]] void becomeProgram(const ChildLaunch& launch) {
  resetSignals();
  ::setsid();
  placeStreams(launch);
  const int report = closeTheRest(launch.report);
  ::umask(kUsualUmask);
  restoreLimits();
  if (!becomeForGood(launch.identity)) giveUp(report, ChildReport::Step::identity);
  if (launch.workingDirectory != nullptr && ::chdir(launch.workingDirectory) != 0) {
    giveUp(report, ChildReport::Step::directory);
  }
  unblockSignals();
  ::execve(launch.path, launch.arguments, launch.environment);
  giveUp(report, ChildReport::Step::exec);
}

/// Whoever started us may have left SIGCHLD ignored; children would then vanish without a status.
void wantChildStatus() {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) ::signal(SIGCHLD, SIG_DFL);
}

}  // namespace

void keepLimitsForChildren() {
  limitsAreKept = true;
  for (KeptLimit& kept : keptLimits) {
    limitsAreKept = limitsAreKept && ::getrlimit(static_cast<__rlimit_resource_t>(kept.resource), &kept.value) == 0;
  }
}

void forbidDumps() {
  rlimit core{};
  if (::getrlimit(RLIMIT_CORE, &core) != 0) core = {};
  core.rlim_cur = 0;
  ::setrlimit(RLIMIT_CORE, &core);
  ::prctl(PR_SET_DUMPABLE, 0);
}

pid_t launchChild(const ChildLaunch& launch) {
  wantChildStatus();
  if (failPoint("process.fork")) return -1;
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  // A handler of ours must not run in the child, where it would write in our memory.
  ::sigprocmask(SIG_SETMASK, &all, &before);
  // A child of one's own user shares the memory until it is the program, which costs nothing however large this process
  // is. One that becomes somebody else gets a copy: its new user could stop it in between, and with it us.
  const bool sharesMemory = launch.identity.user == realIds().user;
  // What the child does until it is the program is nothing but system calls, on its own part of the stack.
  // NOLINTNEXTLINE(clang-analyzer-unix.Vfork)
  const pid_t pid = sharesMemory ? ::vfork() : ::fork();
  if (pid == 0) becomeProgram(launch);  // NOLINT(clang-analyzer-unix.Vfork)
  const int error = errno;
  ::sigprocmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return pid;
}

int runDetached(int (*work)(void*), void* argument) {
  std::fflush(nullptr);
  wantChildStatus();
  const pid_t pid = failPoint("process.fork") ? -1 : ::fork();
  if (pid < 0) {
    errorLog("Unable to start a process: %s", std::strerror(errno));
    return 0;
  }
  if (pid > 0) return 1;
  ::setsid();
  leaveDescriptors();
  randseed();
  ::_exit(work(argument));
}

int do_waitpid(pid_t pid, int& status, const char* name) {
  while (true) {
    if (::waitpid(pid, &status, WUNTRACED | WCONTINUED) < 0) {
      if (errno == EINTR) {
        atSafePoint();
        continue;
      }
      errorLogAndDebug(10, "wait error on %s: %s", name, std::strerror(errno));
      return -1;
    }
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) {
      errorLogAndDebug(100, "pid %d killed by signal %d (%s)", pid, WTERMSIG(status), name);
      return WTERMSIG(status);
    }
    if (WIFSTOPPED(status)) debug(1000, "pid %d stopped by signal %d (%s)", pid, WSTOPSIG(status), name);
    if (WIFCONTINUED(status)) debug(1000, "pid %d continued (%s)", pid, name);
  }
}

}  // namespace zvtaskq
