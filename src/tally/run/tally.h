// The measuring of what accounts use: one tally of the whole server, of one reseller, or of one user.
#pragma once

#include <memory>

#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/text/text.h"
#include "tally/run/totals.h"

namespace zvtaskq {

class Config;
class TallyRun;

enum TallyScope : int { kTallyServer = 1, kTallyReseller = 2, kTallyUser = 3 };

/// One object serves one run and one scope. Everything here works under any identity and gives it back.
///
/// Accounts that cannot be read or that another run works on do not keep the others from being tallied: each has its
/// error-log line; what a busy one used last counts in the sums.
class Tally {
 public:
  /// The scope, and the name of its account (null for the server). `conf` must outlive the object.
  Tally(int type, const Config* conf, const char* name);
  ~Tally();
  Tally(const Tally&) = delete;
  Tally& operator=(const Tally&) = delete;

  /// Tallies the scope as the mask says, by the tables of getAllQuotas (null: nobody uses anything); both stay the
  /// caller's. 0 with an error-log line when it could not be done whole, when a script of the administrator's forbade
  /// it, and when it was halted.
  [[nodiscard]] int tallyHo(ConfigFile* quotas, ConfigFile* inodes, int mask);
  /// The three scopes. They are called by tallyHo alone, which makes ready what they share.
  [[nodiscard]] int tallyAll(int mask);
  [[nodiscard]] int tallyReseller(int mask);
  [[nodiscard]] int tallyUser(int mask);

  /// Computes anew what has been allocated, the sums of the limits handed out, and writes them: "reseller.allocation"
  /// of each reseller and administrator, "admin.allocation" of the server. What this object's tally has read is not
  /// read again. 0 with an error-log line.
  [[nodiscard]] int getAllocations();
  [[nodiscard]] int usageAll();
  [[nodiscard]] int usageReseller();
  [[nodiscard]] int usageUser();
  /// Puts what the scope's usage record says into `totals`. 0 with an error-log line.
  [[nodiscard]] int getUsage();

  /// The sum of a tally file, in bytes.
  static double getTallyTotal(const char* path);
  /// tally/counts/account_cache.h
  static int dumpShowAllUsersCache(const Config* conf, const ListFile* accounts = nullptr, int createdUsers = 0,
                                   int connection = -1, const ConfigFile* selection = nullptr);

  /// The output of custom scripts, in lines for people; empty at first.
  Text result = Text::copyOf("");
  /// The sums of the scope.
  TallyTotals totals;
  /// What usageAll and its kin add up.
  std::unique_ptr<class Allocation> allocation;

 private:
  Tally(int type, const Config* conf, const char* name, TallyRun* run);
  /// The tallies of those in the scope, added to the sums.
  void tallyOthers(const ListFile& names, int type, int mask);
  void tallyOwnAccount(int mask);
  int isRightType(const char* words);
  void load_shared_ips();

  int type_;
  Text name_;
  const Config* conf_;
  ConfigFile* quotas_ = nullptr;
  ConfigFile* inodes_ = nullptr;
  ConfigFile work_{nullptr};
  ListFile sharedIps_{nullptr};
  /// What this tally has in common with those of its accounts: its own, or that of the tally that made it.
  std::unique_ptr<TallyRun> ownRun_;
  TallyRun* run_;
};

}  // namespace zvtaskq
