// Whose the FTP accounts are.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zvtaskq {

/// The FTP server's password file, read once. An FTP account ("name:hash:uid:gid::home:") belongs to the account whose
/// user id it works with; when no account has that id, to the owner of the domain behind the "@" of its name. The
/// account's own name there is its system account, and no FTP account of its.
class FtpAccounts {
 public:
  /// Reads as root, and gives back the identity it finds. There need be no such file; null names none.
  explicit FtpAccounts(const char* passwordFile);

  /// The file could be read to its end; when not, the error log says why.
  bool isWhole() const { return isWhole_; }
  long long of(const char* account, const std::vector<std::string>& domains) const;

 private:
  void take(std::string_view line);

  std::map<uid_t, long long> byUser_;
  std::map<std::string, long long, std::less<>> byDomain_;
  bool isWhole_ = true;
};

}  // namespace zvtaskq
