#include <cctype>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "account/suspension/account_jobs.h"
#include "core/process/child.h"
#include "core/process/execute.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"

namespace zvtaskq {

namespace {

constexpr int kAskedFor = 2000;
constexpr int kBetweenLooks = 50;
constexpr int kRounds = 20;
constexpr int kRoundTime = 10;
constexpr std::string_view kUidLabel = "\nUid:\t";
constexpr std::string_view kStateLabel = "\nState:\t";

/// The status of a process, as far as it is looked at.
std::string statusOf(int proc, const char* pid) {
  char text[2048];
  const Descriptor file(sys::openat(proc, joined(pid, "/status").c_str(), O_RDONLY));
  const ssize_t got = file ? sys::read(file.get(), text, sizeof text) : 0;
  return {text, got > 0 ? static_cast<std::size_t>(got) : 0};
}

/// Whether it is a process that the user may signal: his by its real or saved id. A daemon that only works as him for a
/// moment is not, nor is what is dead already and only waits to be noticed.
bool isHis(const std::string& status, uid_t user) {
  const std::size_t state = status.find(kStateLabel);
  if (state == std::string::npos || status.compare(state + kStateLabel.size(), 1, "Z") == 0) return false;
  const std::size_t ids = status.find(kUidLabel);
  if (ids == std::string::npos) return false;
  unsigned long all[3] = {};
  const char* at = status.c_str() + ids + kUidLabel.size();
  for (unsigned long& id : all) {
    char* end = nullptr;
    id = std::strtoul(at, &end, 10);
    at = end;
  }
  return all[0] == user || all[2] == user;
}

/// Sends each of his processes the signal, 0 for none; the number of them.
int signalAll(uid_t user, int signal) {
  const AsRoot root;
  FolderReader proc("/proc");
  int found = 0;
  while (const dirent* entry = proc ? proc.next() : nullptr) {
    if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0) continue;
    if (!isHis(statusOf(proc.descriptor(), entry->d_name), user)) continue;
    // It is this one that is signalled, whoever gets its number by then.
    const Descriptor process(sys::openProcess(static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10))));
    if (!process || !isHis(statusOf(proc.descriptor(), entry->d_name), user)) continue;
    ++found;
    if (signal != 0) static_cast<void>(sys::signalProcess(process.get(), signal));
  }
  return found;
}

/// What goes on making new processes is faster than any look at them one by one. The system ends all that a user may
/// signal at once, so that nothing of his has time for another.
void killAsUser(const AccountHolder& holder) {
  ChildPlan plan = ChildPlan::shell("kill -KILL -1");
  plan.identity = holder.ids;
  plan.output = ChildPlan::Stream::discard;
  plan.errors = ChildPlan::Stream::discard;
  plan.workingDirectory.assign(1, '/');
  plan.timeLimit = kRoundTime;
  static_cast<void>(runChild(plan));
}

}  // namespace

int endProcesses(const AccountHolder& holder) {
  if (!holder.isPerson() || signalAll(holder.ids.user, SIGTERM) == 0) return 1;
  for (int waited = 0; waited < kAskedFor; waited += kBetweenLooks) {
    nap(kBetweenLooks);
    if (signalAll(holder.ids.user, 0) == 0) return 1;
  }
  for (int i = 0; i < kRounds; ++i) {
    killAsUser(holder);
    if (signalAll(holder.ids.user, SIGKILL) == 0) return 1;
    nap(kBetweenLooks);
  }
  const int left = signalAll(holder.ids.user, 0);
  if (left == 0) return 1;
  errorLog("%d processes of account %s could not be ended", left, holder.name.c_str());
  return 0;
}

}  // namespace zvtaskq
