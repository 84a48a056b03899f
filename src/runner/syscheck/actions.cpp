#include "runner/syscheck/actions.h"

#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/safe_point.h"
#include "notify/ticket.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/issues.h"

namespace zvtaskq {

namespace {

constexpr const char* kSubject = "A system issue requires your attention";
constexpr int kGeneral = 1;

struct Check {
  const char* what;
  void (*run)(Issues& issues);
};
constexpr Check kChecks[] = {
    {"services", checkServicesRun},
    {"open files", checkOpenFiles},
    {"settings", checkSettingNames},
    {"files", checkPanelFiles},
    {"templates", checkTemplates},
    {"accounts", checkAccounts},
    {"certificates", checkCertificateEnds},
    {"leftovers", checkLeftovers},
    {"clock", checkClock},
    {"space", checkSpace},
};

int checkSystem(const Task&) {
  if (isDemo()) return 1;
  Issues issues;
  for (const Check& check : kChecks) {
    set_program_location("system check: %s", check.what);
    check.run(issues);
    atSafePoint();
  }
  if (issues.isEmpty()) return 1;
  return Ticket().notifyAdmins("", kSubject, issues.text().c_str(), kGeneral);
}

constexpr ActionRow kRows[] = {
    {"syscheck", nullptr, nullptr, checkSystem, "looks for what is wrong with the panel and its server"},
};

}  // namespace

ActionRows syscheckActions() {
  return kRows;
}

}  // namespace zvtaskq
