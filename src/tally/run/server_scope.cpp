// The tally of the whole server.
#include <ctime>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/old_messages.h"
#include "tally/disk/mail_counting.h"
#include "tally/logs/web_logs.h"
#include "tally/logs/web_rotation.h"
#include "tally/run/tally.h"
#include "tally/run/tally_run.h"
#include "tally/traffic/home_traffic.h"

namespace zvtaskq {

namespace {

void sayInBoth(const char* what) {
  systemLog("%s", what);
  debug(100, "%s", what);
}

/// How many users the lists of all resellers and administrators name. A list that cannot be read is told of later.
std::size_t countUsers() {
  std::size_t count = 0;
  for (const char* list : {"reseller.list", "admin.list"}) {
    PanelList managers(adminFile(list));
    if (!managers.readFile()) continue;
    for (int i = 0; i < managers.size(); ++i) {
      ListFile users(nullptr);
      if (readAccountList(managers.getElementAt(i), "users.list", users))
        count += static_cast<std::size_t>(users.size());
    }
  }
  return count;
}

/// Folders of accounts that stand in no list: nobody tallies them.
void tellOfUnlisted(const TallyRun& run) {
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) return;
  for (int i = 0; i < accounts.size(); ++i) {
    const char* name = accounts.getElementAt(i);
    if (run.hasMet(name)) continue;
    errorLog("%s: account %s is in nobody's list of users, and is not tallied", accountFile(name, nullptr).c_str(),
             name);
  }
}

/// The server's record. 0 with an error-log line.
int writeUsage(const TallyTotals& totals, int mask) {
  PanelRecord usage(adminFile("admin.usage"));
  if (!usage.readFile()) {
    errorLog("*** Unable to read admin.usage ***");
    return 0;
  }
  totals.put(usage, mask, true);
  usage.setParam("last_tally", static_cast<long long>(std::time(nullptr)));
  if (usage.writeFile()) return 1;
  errorLog("*** Unable to write admin.usage ***");
  return 0;
}

}  // namespace

int Tally::tallyAll(int mask) {
  sayInBoth("Tally All Begin");
  const AsUser panel(kPanelUser);
  const std::string before = hookPath(*conf_, "tally_pre.sh");
  const HookAnswer pre = executeIfExists(before.c_str(), nullptr);
  if (pre.failed()) {
    stringCat(result, "Script output", "</b>: ", before, pre.error);
    errorLog("Tally::tallyHo: Pre script output: %s", pre.error.c_str());
    return 0;
  }
  stringCat(result, pre.result);
  if (mask == 0) mask = kTallyAll;
  if (run_->wants(kTallyBandwidth)) {
    static_cast<void>(parseHomeDirBandwidth());
    rotate_email_usage(conf_);
  }
  run_->putTrafficAside({});
  const bool rotates = logsArePutAside(*conf_);
  if (rotates) rotate_apache_logs(conf_, false, result);
  run_->tellServers(rotates);

  run_->progress.begin(countUsers());
  int whole = 1;
  for (const char* list : {"reseller.list", "admin.list"}) {
    PanelList names(adminFile(list));
    if (!names.readFile()) {
      if (std::string_view(list) == "admin.list") {
        errorLog("*** Unable to read admin.list ***");
      } else {
        errorLog("*** Unable to read %s ***", names.getFilename());
      }
      return 0;
    }
    tallyOthers(names, kTallyReseller, mask);
  }
  run_->progress.end();
  if (runFlags.halt) {
    errorLog("Tally::tallyHo: halted");
    return 0;
  }
  tellOfUnlisted(*run_);

  if (!writeUsage(totals, mask)) return 0;
  if (!dumpShowAllUsersCache(conf_)) whole = 0;
  if (run_->wants(kTallyHousekeeping)) removeOldMessages(kPanelUser);
  const HookAnswer post = executeIfExists(hookPath(*conf_, "tally_post.sh").c_str(), nullptr);
  if (post.failed()) errorLog("Tally::tallyHo: Post script output: %s", post.error.c_str());
  stringCat(result, post.result);
  if (run_->byteLogs() != nullptr && run_->isWhole()) run_->byteLogs()->sawEverything();
  sayInBoth("Tally All Complete");
  return whole;
}

void Tally::tallyOthers(const ListFile& names, int type, int mask) {
  for (int i = 0; i < names.size() && !runFlags.halt; ++i) {
    const char* name = names.getElementAt(i);
    Tally other(type, conf_, name, run_);
    // What could not be done has had its words, and does not keep the others from being tallied.
    const int done = other.tallyHo(quotas_, inodes_, mask);
    stringCat(result, other.result);
    if (!done) run_->skipped();
    totals.add(other.totals);
  }
}

}  // namespace zvtaskq
