#include "core/process/talk.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "core/process/execute.h"
#include "core/process/launch.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"

namespace zvtaskq {

namespace {

using namespace std::chrono_literals;

/// How long something that an ended child left running may keep its output open before we stop listening.
constexpr auto kAfterItsEnd = 10s;
/// How long a killed child may take to go.
constexpr auto kAfterTheKill = 5s;
/// How often a kernel without descriptors for processes is asked whether the child has ended.
constexpr int kAskEvery = 20;
constexpr std::size_t kReadSize = 64UL * 1024;

/// While it lives, a write to a pipe without a reader fails and does nothing worse.
class WithoutSigpipe {
 public:
  WithoutSigpipe() {
    ::sigemptyset(&only_);
    ::sigaddset(&only_, SIGPIPE);
    sigset_t pending;
    ::sigpending(&pending);
    wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::sigprocmask(SIG_BLOCK, &only_, &before_);
  }
  ~WithoutSigpipe() {
    const timespec now{};
    while (!wasPending_ && ::sigtimedwait(&only_, nullptr, &now) < 0 && errno == EINTR) continue;
    ::sigprocmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutSigpipe(const WithoutSigpipe&) = delete;
  WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;

 private:
  sigset_t only_{};
  sigset_t before_{};
  bool wasPending_ = false;
};

void logDupError(const char* name, const ChildReport& what) {
  errorLog("Dup Error on %s : %s", name, std::strerror(what.error));
  if (what.error == EBADF) {
    errorLog(
        "oldfd isn't an open file descriptor, or newfd is out of the allowed range for file descriptors.old0: %d new0: "
        "%d old1: %d new1: %d",
        what.old0, what.new0, what.old1, what.new1);
  } else if (what.error == EMFILE) {
    errorLog("The process already has the maximum number of file descriptors open and tried to open a new one.");
  } else {
    errorLog("close must have caused the dup error: %d", what.error);
  }
}

}  // namespace

void killGroup(pid_t pid) {
  const AsRoot root;
  ::kill(-pid, SIGKILL);
  ::kill(pid, SIGKILL);
}

ChildTalk::ChildTalk(Child& child, ChildResult& result) : child_(child), result_(result) {
  ended_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, child.pid_, 0)));
  if (child.timeLimit_ > 0) deadline_ = child.startedAt_ + std::chrono::seconds(child.timeLimit_);
}

int ChildTalk::run() {
  if (child_.settleTime_ > 0) nap(child_.settleTime_);
  if (child_.inputs_.empty()) child_.in_.reset();
  while (!isOver()) {
    if (!pollOnce()) return 0;
  }
  return 1;
}

bool ChildTalk::isOver() const {
  if (child_.report_ || child_.in_ || child_.out_) return false;
  return hasEnded_ || deadline_ == Clock::time_point::max();
}

int ChildTalk::timeout() const {
  const int most = ended_ || hasEnded_ ? 60000 : kAskEvery;
  if (deadline_ == Clock::time_point::max()) return most;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, most));
}

int ChildTalk::pollOnce() {
  // A descriptor of -1 is one that poll passes over.
  std::array<pollfd, 4> waited = {{{child_.report_.get(), POLLIN, 0},
                                   {child_.in_.get(), POLLOUT, 0},
                                   {child_.out_.get(), POLLIN, 0},
                                   {hasEnded_ ? -1 : ended_.get(), POLLIN, 0}}};
  if (::poll(waited.data(), waited.size(), timeout()) < 0) {
    for (pollfd& one : waited) one.revents = 0;
    atSafePoint();
  }
  if (waited[0].revents != 0) readReports();
  if (waited[1].revents != 0) feed();
  if (waited[2].revents != 0) collect();
  if (!hasEnded_) noticeEnd(waited[3].revents != 0);
  return Clock::now() < deadline_ ? 1 : watchClock();
}

void ChildTalk::readReports() {
  ChildReport what{};
  const ssize_t got = ::read(child_.report_.get(), &what, sizeof what);
  if (got < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (got != static_cast<ssize_t>(sizeof what)) {
    child_.report_.reset();
    return;
  }
  const char* name = child_.name_.c_str();
  const char* reason = std::strerror(what.error);
  switch (what.step) {
    case ChildReport::Step::dup:
      logDupError(name, what);
      break;
    case ChildReport::Step::identity:
      errorLog("Unable to become uid %u gid %u for %s: %s", child_.identity_.user, child_.identity_.group, name,
               reason);
      break;
    case ChildReport::Step::directory:
      errorLog("Unable to enter the working directory for %s: %s", name, reason);
      break;
    case ChildReport::Step::exec:
      if (child_.direct_) {
        errorLog("(1)Execl error on %s : %s", name, reason);
      } else {
        errorLog("(2)Execl error on %s: %s", name, reason);
      }
      break;
  }
}

void ChildTalk::feed() {
  const WithoutSigpipe quiet;
  while (input_ < child_.inputs_.size()) {
    const std::string& text = child_.inputs_[input_];
    if (fed_ == text.size()) {
      ++input_;
      fed_ = 0;
      continue;
    }
    const ssize_t wrote = ::write(child_.in_.get(), text.data() + fed_, text.size() - fed_);
    if (wrote < 0 && (errno == EAGAIN || errno == EINTR)) return;
    // A child that does not want the rest is no fault of ours.
    if (wrote < 0) break;
    fed_ += static_cast<std::size_t>(wrote);
  }
  child_.in_.reset();
}

void ChildTalk::collect() {
  std::array<char, kReadSize> room;
  const ssize_t got = ::read(child_.out_.get(), room.data(), room.size());
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (got <= 0) {
    child_.out_.reset();
    return;
  }
  const std::size_t size = static_cast<std::size_t>(got);
  const std::size_t kept = std::min(size, child_.outputLimit_ - result_.output.size());
  result_.output.append(room.data(), kept);
  if (kept == size || !tellsOfCut_) return;
  tellsOfCut_ = false;
  errorLog("Output of %s is longer than %zu bytes. Chopping the rest.", child_.name_.c_str(), child_.outputLimit_);
}

void ChildTalk::noticeEnd(bool pidfdIsReady) {
  if (ended_ && !pidfdIsReady) return;
  siginfo_t what{};
  // It stays a zombie until it is waited for at the very end: its number is not given to another before that.
  if (::waitid(P_PID, static_cast<id_t>(child_.pid_), &what, WEXITED | WNOHANG | WNOWAIT) == 0 && what.si_pid == 0)
    return;
  hasEnded_ = true;
  child_.in_.reset();
  const auto atLatest = Clock::now() + (result_.timedOut ? 0s : kAfterItsEnd);
  deadline_ = result_.timedOut ? atLatest : std::min(deadline_, atLatest);
}

int ChildTalk::watchClock() {
  if (hasEnded_) {
    if (child_.out_ && !result_.timedOut) {
      errorLog("Something that %s (pid %d) started holds its output open. Not waiting for it.", child_.name_.c_str(),
               child_.pid_);
    }
    child_.out_.reset();
    child_.report_.reset();
    return 1;
  }
  if (result_.timedOut) {
    errorLog("pid %d (%s) does not end even when killed. Leaving it behind.", child_.pid_, child_.name_.c_str());
    return 0;
  }
  result_.timedOut = true;
  if (child_.atLimit_ == ChildPlan::AtLimit::leave) {
    errorLogAndDebug(100, "Time limit of %d seconds is over: not waiting for pid %d (%s) any longer", child_.timeLimit_,
                     child_.pid_, child_.name_.c_str());
    return 0;
  }
  errorLogAndDebug(100, "Time limit of %d seconds is over: killing pid %d (%s)", child_.timeLimit_, child_.pid_,
                   child_.name_.c_str());
  killGroup(child_.pid_);
  deadline_ = Clock::now() + kAfterTheKill;
  return 1;
}

}  // namespace zvtaskq
