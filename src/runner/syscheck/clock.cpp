#include "runner/syscheck/clock.h"

#include <sys/timex.h>

#include <ctime>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/fail_point.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "runner/syscheck/checks.h"

namespace zvtaskq {

namespace {

/// Seconds that what was written by another clock (a package, a log over the network) may lie ahead.
constexpr long long kSlack = 86400;

long long changedAt(const std::string& path) {
  const AsRoot root;
  struct stat what {};
  return ::stat(path.c_str(), &what) == 0 ? what.st_mtime : 0;
}

ClockFacts::Kept isKept() {
  timex state{};
  if (failPoint("syscheck.adjtimex") || ::adjtimex(&state) < 0) return ClockFacts::Kept::unknown;
  return (state.status & STA_UNSYNC) == 0 ? ClockFacts::Kept::yes : ClockFacts::Kept::no;
}

}  // namespace

void addClockIssues(const ClockFacts& facts, Issues& issues) {
  if (facts.now + kSlack < facts.installed) {
    issues.add(Concern::clock, "the clock stands before the day on which the panel was installed",
               "set it, and look whether the machine keeps it when it is switched off");
  } else if (facts.now + kSlack < facts.logged) {
    issues.add(Concern::clock, "the clock stands before the last line of the panel's error log",
               "set it; what was noted while it was wrong is put right by the next full tally");
  }
  if (facts.kept == ClockFacts::Kept::no) {
    issues.add(Concern::clock, "nothing keeps the clock to the time",
               "install and start a service that does, such as chrony or systemd-timesyncd");
  }
}

void checkClock(Issues& issues) {
  const ClockFacts facts{std::time(nullptr), changedAt(joined(sys_conf->serverpath, "/zvtaskq")),
                         changedAt(joined(sys_conf->errorLogFile)), isKept()};
  addClockIssues(facts, issues);
}

}  // namespace zvtaskq
