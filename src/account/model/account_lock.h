// One at a time on an account.
#pragma once

namespace zvtaskq {

/// Seconds that everybody but the tally waits for an account that another run works on.
inline constexpr int kAccountLockWait = 60;

/// Keeps every other process from working on the account: its lifecycle, its step of a tally, its backup, its restore.
/// Within one process it counts, so that what holds an account may call what takes it too. It ends with its holder,
/// however that dies; children never inherit it.
class AccountLock {
 public:
  /// Waits `seconds` at most. Under any identity, which is the same afterwards.
  AccountLock(const char* account, int seconds);
  ~AccountLock();
  AccountLock(const AccountLock&) = delete;
  AccountLock& operator=(const AccountLock&) = delete;

  /// False when another process has it, and when there can be none: errno says why, EWOULDBLOCK for another process.
  bool held() const { return place_ >= 0; }

 private:
  int place_ = -1;
};

}  // namespace zvtaskq
