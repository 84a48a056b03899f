// One account's step of a tally.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "account/model/account_lock.h"
#include "account/model/system_accounts.h"
#include "account/model/user_folder.h"
#include "core/files/write_batch.h"
#include "core/process/time_budget.h"
#include "core/record/config_file.h"
#include "core/tree/tree_size.h"
#include "tally/disk/disk_breakdown.h"
#include "tally/run/totals.h"
#include "tally/run/usage_message.h"
#include "tally/traffic/account_bill.h"

namespace zvtaskq {

class TallyRun;

class UserStep {
 public:
  /// A user's step warns and suspends him, and ends with the administrator's script; of a reseller's own account there
  /// is none of that.
  enum class Kind { user, reseller };
  /// All must outlive the object.
  UserStep(TallyRun& run, const char* account, int mask, Kind kind);

  /// Whether there is anything to tally: domains, or traffic of the panel's.
  bool hasAnything();
  /// Measures, writes, warns and suspends, in the documented order. 0 with an error-log line when the account cannot be
  /// read or something could not be written; another run's account counts as it was counted last.
  [[nodiscard]] int run();
  const TallyTotals& totals() const { return totals_; }

 private:
  // What stands in the account's files.
  int readFiles();
  int countAsBefore();
  // Sources, each for its part of the mask.
  void measureMail();
  void visitDomains();
  void visitDomain(const std::string& domain, const std::vector<std::string>& subdomains, ByteSums& traffic);
  void visitHost(const char* domain, const char* subdomain, ByteSums& traffic);
  void measureDomain(const std::string& folder);
  double keepDomainUsage(const std::string& domain, double bytes);
  void checkDomainLimits(const std::string& domain, double used);
  void checkDomainQuota(const std::string& domain, ConfigFile& record);
  void measureOthers();
  int billTraffic();
  void keepHouse();
  void addDiskTotal();
  void count();
  // What follows from it.
  void warnOfMail();
  void warnOfUsage();
  int writeUsage();
  void suspendOrRelease();
  void sayOutcome(bool suspended) const;

  long long measure(const char* what, const char* path, bool counted, const char* owner = nullptr);
  long long fileSizeOf(const std::string& path, bool counted);
  UsedAmount amount(const char* key) const;
  void putUsageTokens(ConfigFile& tokens) const;
  bool isOff() const;

  TallyRun& run_;
  const std::string name_;
  const int mask_;
  const Kind kind_;
  AccountLock lock_;
  ConfigFile record_{nullptr};
  ConfigFile usage_{nullptr};
  ConfigFile breakdown_{nullptr};
  /// The records that are written, in two goes: before the account is billed, and at the end of its step.
  WriteBatch batch_;
  std::vector<std::string> domains_;
  std::size_t nsubdomains_ = 0;
  bool subdomainsAreWhole_ = true;
  SystemAccount system_;
  OpenedFolder home_;
  DiskBreakdown disk_;
  TimeBudget time_;
  Deadline deadline_;
  std::unique_ptr<AccountBill> bill_;
  TrafficParts traffic_;
  TallyTotals totals_;
  /// Bytes on top of what the quota system says.
  double mailOnTop_ = 0;
  double apacheFiles_ = 0;
  double anonymousFtp_ = 0;
  /// Not all of the disk could be looked at in the account's time: the figures of before stay.
  bool diskIsWhole_ = true;
  int outcome_ = 1;
};

}  // namespace zvtaskq
