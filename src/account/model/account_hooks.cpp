#include "account/model/account_hooks.h"

#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

/// Seconds for one of them, while everybody else waits for the account.
constexpr int kTimeLimit = 600;

HookAnswer runHook(const AccountHooks& hooks, const char* when) {
  const std::string script = joined("user_", hooks.what, when);
  ConfigFile pairs(nullptr);
  if (hooks.record != nullptr) pairs.fill(hooks.record);
  pairs.setParam("username", hooks.account);
  if (hooks.name != nullptr) pairs.setParam(hooks.name, hooks.value == nullptr ? "" : hooks.value);
  return executeIfExists(hookPath(*sys_conf, script.c_str()).c_str(), &pairs, kTimeLimit);
}

}  // namespace

int AccountHooks::allow(Text& result) const {
  const HookAnswer answer = runHook(*this, "_pre.sh");
  return answer.failed() ? fail(result, "user_", what, "_pre.sh: ", answer.error) : 1;
}

void AccountHooks::tell() const {
  const HookAnswer answer = runHook(*this, "_post.sh");
  if (answer.failed()) errorLog("user_%s_post.sh for account %s: %s", what, account, answer.error.c_str());
}

}  // namespace zvtaskq
