// The tally of one user.
#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "tally/run/tally.h"
#include "tally/run/tally_run.h"
#include "tally/run/user_step.h"

namespace zvtaskq {

namespace {

constexpr int kHookTime = 60;

/// The administrator's script after each user.
void runUserScript(const Config& conf, const char* user, Text& result) {
  const HookAnswer post =
      executeIfExists(hookPath(conf, kUserScript).c_str(), std::vector<Variable>{{"username", user}}, kHookTime);
  if (post.failed()) errorLog("Tally::tallyUser: Post output: %s", post.error.c_str());
  if (!post.result.empty()) addResult(result, post.result);
}

}  // namespace

int Tally::tallyUser(int mask) {
  if (mask == 0) {
    systemLog("Tally User %s Begin", name_.orEmpty());
    mask = kTallyAll;
  } else {
    systemLog("Tally User %s Begin: mask %d", name_.orEmpty(), mask);
  }
  const AsUser panel(kPanelUser);
  if (run_ == ownRun_.get()) {
    run_->putTrafficAside({joined(name_)});
    run_->tellServers(false);
  }
  run_->progress.next(name_);
  UserStep step(*run_, name_, mask, UserStep::Kind::user);
  const int whole = step.run();
  totals = step.totals();
  if (totals.nusers == 0) return 0;
  if (run_->hasUserScript()) runUserScript(*conf_, name_, result);
  systemLog("Tally User %s Complete", name_.orEmpty());
  return whole;
}

}  // namespace zvtaskq
