#include "services/web/web_rewrite.h"

#include <memory>
#include <set>
#include <utility>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "services/rewrite/rewrite.h"
#include "services/web/php_pools.h"
#include "services/web/server_form.h"
#include "services/web/web_data.h"

namespace zvtaskq {

namespace {

/// Certificates that are judged at a time.
constexpr std::size_t kManyCertificates = 500;

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
    // The sockets that the servers are told of are there first.
    int done = pools_ == nullptr || pools_->finish() ? 1 : fail(result_, pools_->result);
    hasQueued_ = pools_ != nullptr && pools_->hasChanged();
    for (ServerWork& work : works_) {
      if (work.rewrite->finish()) {
        hasQueued_ = hasQueued_ || work.rewrite->hasChanged();
      } else {
        done = fail(result_, work.rewrite->result);
      }
    }
    removeStale();
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
    return beginPools();
  }

  int beginPools() {
    if (usablePhp().empty()) return 1;
    pools_ = std::make_unique<Rewrite>(PhpPools::plan(only_ == nullptr));
    const AsRoot root;
    if (!openStateFolder() || !pools_->begin()) return fail(result_, pools_->result);
    return php_.read(result_);
  }

  /// An account's pools, one for each version that its sites have.
  int offerPools(const WebAccount& account) {
    std::set<std::string> versions;
    for (const WebSite& site : account.sites) {
      if (site.php.empty() || !versions.insert(site.php).second) continue;
      Candidate candidate;
      if (!php_.candidate(account, site.php, candidate, result_)) return 0;
      pools_->offer(std::move(candidate));
    }
    return 1;
  }

  /// Of a rewrite of one account: what is listed and was not offered goes.
  void dropPools(const std::string& account) {
    for (const auto& [path, entry] : pools_->list().entries()) {
      if (entry.origin.account == account && !pools_->isNamed(entry.origin)) pools_->drop(entry.origin);
    }
  }

  int gatherAll() {
    // Taken once, and not anew for every file.
    const AsRoot root;
    if (only_ != nullptr) return take(only_) && takeWaiting();
    ListFile names(nullptr);
    if (!listAccounts(names)) return fail(result_, "the accounts cannot be listed");
    for (int i = 0; i < names.size(); ++i) {
      if (!take(names.getElementAt(i))) return 0;
      atSafePoint();
    }
    return takeWaiting();
  }

  /// The accounts that have new certificates, when those are judged.
  int takeWaiting() {
    judgeCertificates(std::exchange(fresh_, {}));
    for (const std::string& name : std::exchange(waiting_, {})) {
      if (!take(name, true)) return 0;
    }
    return 1;
  }

  int take(const std::string& name, bool isJudged = false) {
    WebAccount account;
    const Gathered gathered = data_.gather(name, account);
    if (!account.fresh.empty() && !isJudged) {
      waiting_.push_back(name);
      for (NewCertificate& one : account.fresh) fresh_.push_back(std::move(one));
      return fresh_.size() < kManyCertificates ? 1 : takeWaiting();
    }
    if (!account.stale.empty()) stale_.emplace_back(name, std::move(account.stale));
    const bool poolsStay =
        gathered == Gathered::unreadable || (gathered == Gathered::ready && !account.arePhpLimitsKnown);
    if (pools_ != nullptr && poolsStay) pools_->keepAccount(name);
    if (pools_ != nullptr && gathered == Gathered::ready && !poolsStay && !offerPools(account)) return 0;
    if (pools_ != nullptr && !poolsStay) dropPools(name);
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

  /// Takes the copies of certificates away that no server's file names any more.
  void removeStale() {
    for (const auto& [account, paths] : stale_) {
      std::string texts;
      for (ServerWork& work : works_) {
        const std::string* text = work.rewrite->present(work.form.fileOf(account));
        if (text != nullptr) texts.append(*text);
      }
      const AsUser panel(kPanelUser);
      for (const std::string& path : paths) {
        if (texts.find(path) == std::string::npos) static_cast<void>(unlinkFile(path.c_str()));
      }
    }
  }

  const char* only_;
  Text& result_;
  WebData data_;
  std::vector<ServerWork> works_;
  PhpPools php_;
  std::unique_ptr<Rewrite> pools_;
  std::vector<NewCertificate> fresh_;
  /// The accounts that `fresh_` is of.
  std::vector<std::string> waiting_;
  std::vector<std::pair<std::string, std::vector<std::string>>> stale_;
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
  if (!hasQueued) queueTask("httpd", "restart");
  return done;
}

}  // namespace zvtaskq
