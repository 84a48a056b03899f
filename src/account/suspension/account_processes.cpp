#include <csignal>

#include "account/model/ftp_sessions.h"
#include "account/suspension/account_jobs.h"
#include "core/process/child.h"
#include "core/process/execute.h"
#include "core/process/running_process.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr int kAskedFor = 2000;
constexpr int kBetweenLooks = 50;
constexpr int kRounds = 20;
constexpr int kRoundTime = 10;

/// Sends each of his processes the signal, 0 for none; the number of them. His are those that he may signal, by their
/// real or saved id. A daemon that only works as him for a moment is not.
int signalAll(uid_t user, int signal) {
  const AsRoot root;
  const auto isHis = [user](const RunningProcess& process) { return process.real == user || process.saved == user; };
  return eachProcess(isHis, [signal](Descriptor&& process) {
    if (signal != 0) static_cast<void>(sys::signalProcess(process.get(), signal));
  });
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
  if (!holder.isPerson()) return 1;
  endFtpSessions({holder.ids.user});
  if (signalAll(holder.ids.user, SIGTERM) == 0) return 1;
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
