#include "account/model/account_work.h"

#include <cerrno>
#include <cstring>

#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task_queue.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

int queueRewrite(const char* what, const char* key, const char* whose, Text& result) {
  ConfigFile pairs(nullptr);
  pairs.setParam(key, whose);
  if (pushOnTaskQueue("rewrite", what, nullptr, &pairs)) return 1;
  std::string_view why = getSysResult();
  why = why.substr(0, why.find("<br>"));
  return fail(result, "Unable to queue action=rewrite&value=", what, "&", key, "=", whose, ": ", why);
}

}  // namespace

AccountWork::AccountWork(const char* name)
    : account(text_detail::part(name).data() == nullptr ? "" : name),
      lock(account, kAccountLockWait),
      lockError(lock.held() ? 0 : errno),
      record(accountFile(account, "user.conf")),
      notes(suspensionFile(account)) {}

int AccountWork::begin(Text& result) const {
  if (isDemo()) return fail(result, "That feature has been disabled for the demo");
  if (!isAccountName(account)) return fail(result, "Invalid user name");
  if (lock.held()) return 1;
  const std::string why = lockError == EWOULDBLOCK ? "another process is working on it" : std::strerror(lockError);
  return fail(result, "Unable to get the lock on account ", account, ": ", why);
}

int AccountWork::open(Text& result) {
  if (!begin(result)) return 0;
  if (!readAccount(account, record)) return fail(result, "Unable to read account ", account, " : ", record.result);
  return notes.read(result);
}

int AccountWork::openWhole(Text& result) {
  return open(result) && findHolder(account, holder, result);
}

bool AccountWork::isSuspended() const {
  return record.isValue("suspended", "yes") != 0;
}

int queueWebRewrite(const char* account, Text& result) {
  return queueRewrite("httpd", "user", account, result);
}

int queueZoneRewrite(const char* domain, Text& result) {
  return queueRewrite("named", "domain", domain, result);
}

}  // namespace zvtaskq
