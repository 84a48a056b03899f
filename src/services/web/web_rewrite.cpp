#include "services/web/web_rewrite.h"

#include <memory>

#include "account/model/account_name.h"
#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "services/rewrite/rewrite.h"
#include "services/web/server_form.h"
#include "services/web/web_data.h"

namespace zvtaskq {

namespace {

/// One server's part of a rewrite.
struct ServerWork {
  ServerForm form;
  std::unique_ptr<Rewrite> rewrite;
};

class WebRewrite {
 public:
  WebRewrite(const char* account, Text& result) : only_(account), result_(result) {}

  int run() {
    if (!data_.read(result_) || !begin() || !gatherAll()) return 0;
    int done = 1;
    for (ServerWork& work : works_) {
      if (work.rewrite->finish()) {
        hasQueued_ = hasQueued_ || work.rewrite->hasChanged();
      } else {
        done = fail(result_, work.rewrite->result);
      }
    }
    return done;
  }
  bool hasQueued() const { return hasQueued_; }

 private:
  int begin() {
    for (const WebServer server : serversInUse(*sys_conf)) {
      ServerWork& work = works_.emplace_back(ServerWork{ServerForm(server, *sys_conf), nullptr});
      RewritePlan plan;
      if (!work.form.readTemplate(result_) || !work.form.prepare(only_ == nullptr, plan, result_)) return 0;
      work.rewrite = std::make_unique<Rewrite>(std::move(plan));
      if (!work.rewrite->begin()) return fail(result_, work.rewrite->result);
    }
    return 1;
  }

  int gatherAll() {
    if (only_ != nullptr) return take(only_);
    ListFile names(nullptr);
    if (!listAccounts(names)) return fail(result_, "the accounts cannot be listed");
    for (int i = 0; i < names.size(); ++i) {
      if (!take(names.getElementAt(i))) return 0;
      atSafePoint();
    }
    return 1;
  }

  int take(const std::string& name) {
    WebAccount account;
    const Gathered gathered = isThere(name) ? data_.gather(name, account) : Gathered::none;
    for (ServerWork& work : works_) {
      Candidate candidate;
      if (gathered == Gathered::unreadable) work.rewrite->keepAccount(name);
      if (gathered == Gathered::none) work.rewrite->drop({name, ""});
      if (gathered != Gathered::ready) continue;
      // The template is the same for all.
      if (!work.form.candidate(account, candidate, result_)) return 0;
      work.rewrite->offer(std::move(candidate));
    }
    return 1;
  }

  static bool isThere(const std::string& name) {
    const AsUser panel(kPanelUser);
    return isAccountName(name.c_str()) && pathExists(accountFile(name.c_str(), nullptr).c_str(), PathKind::folder) != 0;
  }

  const char* only_;
  Text& result_;
  WebData data_;
  std::vector<ServerWork> works_;
  bool hasQueued_ = false;
};

}  // namespace

int rewriteWebServers(const char* account, Text& result) {
  if (isDemo()) return 1;
  int done = 0;
  bool hasQueued = false;
  {
    WebRewrite rewrite(account, result);
    done = rewrite.run();
    hasQueued = rewrite.hasQueued();
  }
  if (done && !hasQueued) queueTask("httpd", "restart");
  return done;
}

}  // namespace zvtaskq
