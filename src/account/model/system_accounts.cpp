#include "account/model/system_accounts.h"

#include <pwd.h>

#include <ctime>

#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

const SystemAccount* SystemAccounts::find(const char* name) {
  readIfChanged();
  const auto found = name == nullptr ? accounts_.end() : accounts_.find(name);
  return found == accounts_.end() ? nullptr : &found->second;
}

Ids SystemAccounts::idsOf(const char* name) {
  const SystemAccount* account = find(name);
  return account == nullptr ? Ids{kUnknownId, kUnknownId} : account->ids;
}

bool SystemAccounts::hasUser(uid_t user) {
  readIfChanged();
  return users_.contains(user);
}

void SystemAccounts::readIfChanged() {
  timespec tick{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &tick);
  if (tick.tv_sec == lookedAt_.tv_sec && tick.tv_nsec == lookedAt_.tv_nsec) return;
  lookedAt_ = tick;
  struct stat now {};
  if (::stat("/etc/passwd", &now) != 0) now = {};
  if (isSame(now, seen_) && !accounts_.empty()) return;
  accounts_.clear();
  users_.clear();
  seen_ = now;
  ::setpwent();
  while (const passwd* entry = ::getpwent()) {
    // The first of a name counts, as it does for who asks by name.
    accounts_.try_emplace(entry->pw_name, SystemAccount{{entry->pw_uid, entry->pw_gid}, entry->pw_dir});
    users_.insert(entry->pw_uid);
  }
  ::endpwent();
}

SystemAccounts& systemAccounts() {
  static SystemAccounts all;
  return all;
}

}  // namespace zvtaskq
