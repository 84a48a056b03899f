#include "account/lifecycle/disk_quota.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "account/model/account_record.h"
#include "account/model/account_work.h"
#include "account/model/limits.h"
#include "account/model/system_accounts.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/system_tool.h"
#include "core/sys/log.h"
#include "core/sys/safe_point.h"
#include "core/text/split.h"

namespace zvtaskq {

namespace {

constexpr double kBlocksOfMegabyte = 1024;
/// Beyond are no numbers that the programs take.
constexpr double kMost = 4e18;
/// Accounts that are set by one call of the program, and that are held meanwhile.
constexpr std::size_t kAtOnce = 500;
/// When so many in a row cannot be set, the next cannot either.
constexpr int kMostFailures = 20;

struct Wish {
  std::string account;
  DiskQuota quota;
};

long long whole(double amount) {
  return static_cast<long long>(std::clamp(std::ceil(amount), 0.0, kMost));
}

/// The four numbers of a quota: blocks of 1024 bytes and files, each soft and hard.
struct Limits {
  explicit Limits(DiskQuota quota) {
    const double times = std::isfinite(sys_conf->hard_quota_multiplier) ? sys_conf->hard_quota_multiplier : 1;
    const double hard = std::max(times, 1.0);
    const double blocks = quota.megabytes * kBlocksOfMegabyte;
    const double files = sys_conf->inode ? quota.inodes : 0;
    softBlocks = std::to_string(whole(blocks));
    hardBlocks = std::to_string(whole(blocks * hard));
    softFiles = std::to_string(whole(files));
    hardFiles = std::to_string(whole(files * hard));
  }
  std::string softBlocks, hardBlocks, softFiles, hardFiles;
};

std::vector<std::string> partitions() {
  std::vector<std::string> all{std::string(sys_conf->quota_partition.view())};
  for (const std::string_view more : wordsIn(sys_conf->ext_quota_partitions.view(), ':')) all.emplace_back(more);
  std::erase_if(all, [](const std::string& path) { return !path.starts_with('/'); });
  return all;
}

const char* tool() {
  return sys_conf->use_xfs_quota ? sys_conf->xfs_quota.orEmpty() : sys_conf->setquota.orEmpty();
}

bool hasQuotas() {
  if (sys_conf->disable_quota) return false;
  if (toolExists(tool())) return true;
  debug(10, "There is no %s: no quota is set", tool());
  return false;
}

/// Sets all of them on one partition by one call.
int setOn(const std::string& partition, const std::vector<Wish>& wishes, Text& result) {
  std::vector<std::string> arguments;
  std::string input;
  if (sys_conf->use_xfs_quota) {
    arguments.emplace_back("-x");
    for (const Wish& wish : wishes) {
      const Limits limits(wish.quota);
      arguments.insert(arguments.end(),
                       {"-c", joined("limit -u bsoft=", limits.softBlocks, "k bhard=", limits.hardBlocks,
                                     "k isoft=", limits.softFiles, " ihard=", limits.hardFiles, " ", wish.account)});
    }
  } else {
    arguments = {"-u", "-b"};
    for (const Wish& wish : wishes) {
      const Limits limits(wish.quota);
      input += joined(wish.account, " ", limits.softBlocks, " ", limits.hardBlocks, " ", limits.softFiles, " ",
                      limits.hardFiles, "\n");
    }
  }
  arguments.push_back(partition);
  return useTool(tool(), std::move(arguments), result, input);
}

int setAll(const std::vector<Wish>& wishes, Text& result) {
  for (const std::string& partition : partitions()) {
    if (!setOn(partition, wishes, result)) return 0;
  }
  return 1;
}

int setOne(const Wish& wish, Text& result) {
  Text why;
  if (systemAccounts().find(wish.account.c_str()) == nullptr) {
    addResult(why, "there is no such system account");
  } else if (setAll({wish}, why)) {
    return 1;
  }
  char words[600];
  const std::string_view reason = why.view().substr(0, why.view().find("<br>"));
  std::snprintf(words, sizeof words, "Error setting quota to %d (inodes=%lld) for user %s : %s",
                static_cast<int>(std::min(wish.quota.megabytes, 2147483647.0)), whole(wish.quota.inodes),
                wish.account.c_str(), std::string(reason).c_str());
  errorLog("%s", words);
  return fail(result, words);
}

/// The accounts of the list from `from` on that nobody else works on, held until they are set.
struct Portion {
  std::vector<std::unique_ptr<AccountLock>> locks;
  std::vector<Wish> wishes;

  int take(const ListFile& accounts, int& from) {
    int fine = 1;
    for (; from < accounts.size() && wishes.size() < kAtOnce; ++from) {
      atSafePoint();
      fine &= takeOne(accounts.getElementAt(from));
    }
    return fine;
  }

  int takeOne(const char* account) {
    auto lock = std::make_unique<AccountLock>(account, 0);
    ConfigFile record(nullptr);
    if (!lock->held()) {
      errorLog("The quota of %s is not set: another process is working on the account", account);
      return 0;
    }
    if (!readAccount(account, record)) {
      errorLog("Unable to read account %s : %s", account, record.result.orEmpty());
      return 0;
    }
    wishes.push_back({account, quotaOf(record, account)});
    locks.push_back(std::move(lock));
    return 1;
  }
};

/// Sets them one by one, for what kept them from being set at once to be told of the one it is about.
int setEach(const std::vector<Wish>& wishes) {
  int failures = 0;
  for (const Wish& wish : wishes) {
    atSafePoint();
    Text result;
    failures = setOne(wish, result) ? 0 : failures + 1;
    if (failures < kMostFailures) continue;
    errorLog("No more quotas are set after %d that could not be", failures);
    return -1;
  }
  return failures == 0 ? 1 : 0;
}

int setAllAccounts() {
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) {
    errorLog("Unable to read %s: no quota is set", sys_conf->userdata.orEmpty());
    return 0;
  }
  int fine = 1;
  for (int i = 0; i < accounts.size();) {
    Portion portion;
    fine &= portion.take(accounts, i);
    Text result;
    std::vector<Wish> rest = portion.wishes;
    const auto unknown = std::stable_partition(rest.begin(), rest.end(), [](const Wish& wish) {
      return systemAccounts().find(wish.account.c_str()) != nullptr;
    });
    const std::vector<Wish> known(rest.begin(), unknown);
    if (known.empty() || setAll(known, result)) rest.erase(rest.begin(), unknown);
    const int each = setEach(rest);
    if (each < 0) return 0;
    fine &= each;
  }
  return fine;
}

}  // namespace

DiskQuota quotaOf(const ConfigFile& record, const char* account) {
  return {limitOf(record, "quota", account).amount, limitOf(record, "inode", account).amount};
}

int setQuota(const char* account, DiskQuota quota, Text& result) {
  return !hasQuotas() || setOne({account, quota}, result) ? 1 : 0;
}

int setAccountQuota(const char* account, Text& result) {
  AccountWork work(account);
  return work.open(result) && setQuota(account, quotaOf(work.record, account), result);
}

int rewriteQuota(const Task& task) {
  const char* user = task.getOrNull("user");
  Text result;
  int done = 1;
  if (user == nullptr) {
    done = !hasQuotas() || setAllAccounts();
  } else if (!setAccountQuota(user, result)) {
    done = 0;
    // What the program said is told already.
    if (!result.view().starts_with("Error setting quota")) errorLog("%s", result.orEmpty());
  }
  queueTask("cache", "showallusers");
  return done;
}

}  // namespace zvtaskq
