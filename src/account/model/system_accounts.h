// The system accounts of this machine, all read in one pass: asking for ten thousand one by one reads the password
// file ten thousand times.
#pragma once

#include <map>
#include <set>
#include <string>

#include "core/sys/identity.h"

namespace zvtaskq {

struct SystemAccount {
  Ids ids{};
  std::string home;
};

class SystemAccounts {
 public:
  /// Null when there is no such account. Valid until the next call: the accounts are read anew when the password file
  /// has changed.
  const SystemAccount* find(const char* name);
  /// The ids, each `kUnknownId` when there is no such account.
  Ids idsOf(const char* name);
  /// Whether some account has that user id.
  bool hasUser(uid_t user);

 private:
  void readIfChanged();

  std::map<std::string, SystemAccount, std::less<>> accounts_;
  std::set<uid_t> users_;
  AccountsFile file_;
};

/// The one of this process.
SystemAccounts& systemAccounts();

}  // namespace zvtaskq
