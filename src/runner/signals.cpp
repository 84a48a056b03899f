#include "runner/signals.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>

#include "core/panel/panel_paths.h"
#include "core/panel/progress.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "runner/actions/not_built.h"

namespace zvtaskq {

namespace {

constexpr int kSegfaultStatus = 666;
constexpr int kRecursiveSegfaultStatus = 665;

volatile std::sig_atomic_t reportWanted = 0;
volatile std::sig_atomic_t instructionsWanted = 0;
int alreadySegFault = 0;
std::time_t startedAt = 0;

void note(int number) {
  if (number == SIGUSR1) reportWanted = 1;
  if (number == SIGUSR2) instructionsWanted = 1;
}

void answerNotedSignals() {
  if (reportWanted) {
    reportWanted = 0;
    handleSignal(SIGUSR1);
  }
  if (instructionsWanted) {
    instructionsWanted = 0;
    handleSignal(SIGUSR2);
  }
}

/// Reads what another program wants of this run and does it. Instructions older than this process were meant for one
/// that had the same id before.
void process_new_instruction() {
  const std::string path =
      adminFile(joined("task_queue_processes/", std::to_string(::getpid()), "/instructions").c_str());
  PanelRecord instructions(path);
  if (!instructions.readFile()) {
    errorLogAndDebug(100, "process_new_instruction: Unable to read %s: %s", path.c_str(),
                     instructions.result.orEmpty());
    return;
  }
  if (instructions.readMtime < startedAt) return;
  const char* kind = instructions.getValue("value");
  if (!instructions.isValue("action", "stop") || kind == nullptr) return;
  static_cast<void>(haltJob(kind));
  if (std::string_view(kind) == "backup") reportMissing("USR2 signal", "the halt of running backups");
}

[[noreturn]] void dieOfSegfault() {
  if (alreadySegFault) {
    errorLog("*** Recursive Segfault!!! *** %s", get_program_location());
    std::exit(kRecursiveSegfaultStatus);
  }
  alreadySegFault = 1;
  errorLog("*** Segfault!!! *** %s", get_program_location());
  std::exit(kSegfaultStatus);
}

}  // namespace

void installSignalHandlers() {
  startedAt = std::time(nullptr);
  setSafePointAction(answerNotedSignals);
  struct sigaction action {};
  ::sigemptyset(&action.sa_mask);
  // Not restarted: a wait or a sleep that is interrupted is a safe point, and every other call is retried by its
  // wrapper.
  action.sa_handler = note;
  ::sigaction(SIGUSR1, &action, nullptr);
  ::sigaction(SIGUSR2, &action, nullptr);
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
  // The end of a lease, which may be told long after the lease was given back: who holds one asks its descriptor.
  ::sigaction(SIGIO, &action, nullptr);
}

void handleSignal(int number) {
  const int pid = static_cast<int>(::getpid());
  switch (number) {
    case SIGUSR1:
      errorLog("Zvtaskq [%d] USR1 signal: Currently processing: %s", pid, get_program_location());
      break;
    case SIGUSR2:
      errorLog("Zvtaskq [%d] USR2 signal: New Instructions. Currently processing: %s", pid, get_program_location());
      process_new_instruction();
      break;
    case SIGSEGV:
      dieOfSegfault();
    default:
      errorLog("Zvtaskq [%d] Bad Signal %d\n", pid, number);
      break;
  }
}

}  // namespace zvtaskq
