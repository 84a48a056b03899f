// Whose passwords, jobs and files are meant when an account is: what lifecycle looks up once.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "core/sys/identity.h"
#include "core/text/text.h"

namespace zvtaskq {

/// User and group ids below are the system's own.
inline constexpr uid_t kFirstPerson = 1000;

struct AccountHolder {
  std::string name;
  bool hasSystemAccount = false;
  /// The system account's, `kUnknownId` when there is none; an account may have just that id.
  Ids ids{kUnknownId, kUnknownId};
  std::set<std::string, std::less<>> domains;

  /// Looks for the system account of that name.
  void findSystemAccount();
  /// Whether the system account is one of people's: its files and processes may be touched as those of an account.
  bool isPerson() const;
  /// Whether an FTP account is his: it is called as he is, or after one of his domains, or works under his user id.
  bool ownsFtp(std::string_view ftpName, std::string_view uid) const;
};

/// Looks the account up. A domain of its list that is another account's (`isOthersDomain`) is left out, with an
/// error-log line. An unreadable list makes it 0, with the reason in `result`; `holder` has the rest.
[[nodiscard]] int findHolder(const char* account, AccountHolder& holder, Text& result);

/// A line of a password file: "name:hash:uid:...".
struct PasswordLine {
  explicit PasswordLine(std::string_view line);
  std::string_view name, hash, uid;
  /// Everything behind the hash, its colon included.
  std::string_view rest;
  bool isOne = false;
};

}  // namespace zvtaskq
