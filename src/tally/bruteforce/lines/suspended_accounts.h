// Whether the account that a log-in failed for is suspended.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace zvtaskq {

class Config;

/// The mailboxes or FTP accounts of one password file that are suspended: those whose password, what stands between the
/// first colon and the next, begins with "!". One of nothing but "!" and "*" is locked, and was never suspended.
class SuspendedNames {
 public:
  /// Reads the file as root, through no link that others made. A file that cannot be opened holds none.
  explicit SuspendedNames(const std::string& path);
  /// Why the file could not be opened, empty when it could.
  const std::string& error() const { return error_; }
  bool contains(const std::string& name) const { return names_.contains(name); }

 private:
  std::unordered_set<std::string> names_;
  std::string error_;
};

/// Which system accounts are suspended, for many questions. The first few names are asked for one by one, as is
/// cheapest on a server with many accounts in a quiet minute. Then all accounts that the name service lists are read,
/// once: the names are what attackers type, and they can type many.
class SuspendedSystemAccounts {
 public:
  /// As `system_acount_is_suspended`; what was answered once is answered again.
  bool contains(const char* name);

 private:
  void list();

  /// The accounts that were asked for or listed, and whether they are suspended.
  std::unordered_map<std::string, bool> known_;
  bool listed_ = false;
};

/// The answers for one scan of the logs: each password file is read once, at most 1000 of them are kept at a time. The
/// names are what attackers typed: of the files that cannot be opened the error log is told the first 20.
class SuspendedAccounts {
 public:
  /// `conf` is kept by reference.
  explicit SuspendedAccounts(const Config& conf) : conf_(conf) {}
  SuspendedAccounts(const SuspendedAccounts&) = delete;
  SuspendedAccounts& operator=(const SuspendedAccounts&) = delete;

  /// Whether `name` is a suspended account of `service`, the program name of a filter group such as "dovecot". False
  /// without a name or a service, in demonstration mode, for a service that is not known (error log, once) and for a
  /// name that cannot be looked up. Leaves the process at nobody.
  bool isSuspended(const char* name, const char* service);

 private:
  bool mailboxIsSuspended(const char* name, const char* service);
  bool isInFile(const char* name, const std::string& path);

  const Config& conf_;
  std::unordered_map<std::string, SuspendedNames> files_;
  SuspendedSystemAccounts systemAccounts_;
  std::unordered_set<std::string> unknownServices_;
  int unreadableFiles_ = 0;
};

/// One question. 1 when the account is suspended, as `SuspendedAccounts::isSuspended`; 0 for a null `conf`.
int user_is_suspended(const Config* conf, const char* name, const char* service);

/// 1 when the password file at `path` has the account, and has it suspended, with a security-log line. 0 with an
/// error-log line for a file that cannot be opened and for a name of 512 bytes and more. Leaves the process at nobody.
int user_is_suspended_in_file(const char* name, const char* path);

/// 1 when the password of the system account is a suspended one, as in a file. 0 for what is no such account. Accounts
/// that come with the system (root, and ids below 1000) often have no password but "!", and are never suspended. Leaves
/// the process at nobody.
int system_acount_is_suspended(const char* name);

}  // namespace zvtaskq
