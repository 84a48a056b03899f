#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "account/model/account_record.h"
#include "account/model/system_accounts.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/placed.h"

namespace zvtaskq {

namespace {

using Clock = std::chrono::steady_clock;

/// For all accounts together.
constexpr std::chrono::seconds kTimeLimit{120};
constexpr mode_t kFolderMode = S_IFDIR | 0711;
constexpr mode_t kHidden = 066;
constexpr mode_t kOthers = 077;
constexpr const char* kPutBack = "put it back from a backup, or delete the account in the panel";
/// Files of an account's folder, which other code takes for empty when they are not there.
constexpr const char* kRecords[] = {"user.usage"};
constexpr const char* kLists[] = {"ip.list", "domains.list"};
/// Lists of accounts, below `admindir` and in the folders of those who have users.
constexpr const char* kServerLists[] = {"admin.list", "reseller.list"};
constexpr const char* kUserList = "users.list";

class AccountCheck {
 public:
  AccountCheck(Issues& issues, const ListFile& all) : issues_(issues), all_(all) {}

  void check(const char* account);
  void checkServer();

 private:
  void checkRecord(const char* account, AccountType& type);
  void checkHome(const char* account);
  void checkDomains(const char* account);
  /// That all who are listed are accounts.
  void checkListed(const std::string& path);
  void add(Concern kind, std::string_view what, std::string_view remedy) { issues_.add(kind, what, remedy, account_); }
  void unreadable(const char* path, std::string_view why, const char* remedy) {
    add(Concern::records, joined(path, " cannot be read (", why.substr(0, why.find("<br>")), ")"), remedy);
  }

  Issues& issues_;
  const ListFile& all_;
  /// Whose turn it is; empty for the server's own lists.
  std::string account_;
};

void AccountCheck::checkRecord(const char* account, AccountType& type) {
  PanelRecord record(accountFile(account, "user.conf"));
  type = AccountType::unknown;
  if (!readAccount(account, record)) return unreadable(record.getFilename(), record.result.view(), kPutBack);
  type = accountTypeOf(record);
  if (type == AccountType::unknown) {
    add(Concern::records, joined(record.getFilename(), " does not say what the account is"),
        "set its usertype to user, reseller or admin");
  }
}

void AccountCheck::checkHome(const char* account) {
  const SystemAccount* person = systemAccounts().find(account);
  if (person == nullptr) {
    add(Concern::accounts, joined(account, " has no system account"),
        "restore the account from its backup, or delete it in the panel");
    return;
  }
  struct stat what {};
  const AsRoot root;
  if (sys::lstat(person->home.c_str(), what) != 0) {
    add(Concern::accounts, joined(account, ": the home ", person->home, ": ", std::strerror(errno)),
        joined("mount the file system it is on, or make it (install -d -o ", account, " -g ", account, " -m 711 ",
               person->home, ") and restore what was in it"));
  } else if (!S_ISDIR(what.st_mode) || what.st_uid != person->ids.user) {
    add(Concern::accounts, joined(account, ": the home ", person->home, " is not a folder of that user"),
        joined("find out why, then call chown ", account, " ", person->home));
  } else if ((what.st_mode & 02) != 0) {
    add(Concern::accounts, joined(account, ": everybody may write to the home ", person->home),
        joined("call chmod o-w ", person->home));
  }
}

void AccountCheck::checkDomains(const char* account) {
  std::vector<std::string> domains;
  Text why;
  // That the list cannot be read is told as that of a list.
  if (!readDomains(account, domains, why)) return;
  const AsUser panel(kPanelUser);
  for (const std::string& domain : domains) {
    ConfigFile record(nullptr);
    if (!readDomain(account, domain.c_str(), record)) {
      unreadable(record.getFilename(), record.result.view(),
                 "put it back from a backup, or delete the domain in the panel");
    }
    checkPlaced({domainFile(account, domain.c_str(), "key"), kPanelUser, 0600, kOthers, true, account}, Concern::files,
                issues_);
  }
}

void AccountCheck::checkListed(const std::string& path) {
  PanelList list(path);
  list.useLock = false;
  // What has to be there is told as a file.
  if (!list.readFile()) return;
  for (int i = 0; i < list.size(); ++i) {
    const char* name = list.getElementAt(i);
    if (all_.existElement(name)) continue;
    add(Concern::accounts, joined(name, " of ", path, " has no folder below ", sys_conf->userdata),
        "restore the account from its backup, or take the name out of the list");
  }
}

void AccountCheck::check(const char* account) {
  AccountType type{};
  account_ = account;
  checkRecord(account, type);
  for (const char* file : kRecords) {
    ConfigFile record(nullptr);
    if (!readAccountFile(account, file, record)) unreadable(record.getFilename(), record.result.view(), kPutBack);
  }
  for (const char* file : kLists) {
    ListFile list(nullptr);
    if (!readAccountList(account, file, list)) unreadable(list.getFilename(), list.result.view(), kPutBack);
  }
  checkPlaced({accountFile(account, nullptr), kPanelUser, kFolderMode, kHidden, false, account}, Concern::files,
              issues_);
  checkPlaced({accountFile(account, "user.conf"), kPanelUser, 0600, kOthers, true, account}, Concern::files, issues_);
  checkHome(account);
  checkDomains(account);
  if (type == AccountType::reseller || type == AccountType::admin) checkListed(accountFile(account, kUserList));
}

void AccountCheck::checkServer() {
  for (const char* list : kServerLists) checkListed(adminFile(list));
}

}  // namespace

void checkAccounts(Issues& issues) {
  ListFile all(nullptr);
  if (!listAccounts(all)) {
    issues.add(Concern::accounts, joined("the accounts in ", sys_conf->userdata, " cannot be read"),
               "mount the file system it is on, or set userdata to the right folder");
    return;
  }
  const Clock::time_point end = Clock::now() + kTimeLimit;
  AccountCheck check(issues, all);
  check.checkServer();
  for (int i = 0; i < all.size(); ++i) {
    if (Clock::now() >= end) {
      issues.add(Concern::accounts,
                 joined(std::to_string(all.size() - i), " accounts were not looked at, it took too long"),
                 "find out what slows the disk down, and check again");
      return;
    }
    check.check(all.getElementAt(i));
    atSafePoint();
  }
}

}  // namespace zvtaskq
