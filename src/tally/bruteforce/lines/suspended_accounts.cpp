#include "tally/bruteforce/lines/suspended_accounts.h"

#include <pwd.h>
#include <shadow.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

#include "account/model/account_name.h"
#include "account/model/password_marks.h"
#include "core/config/config.h"
#include "core/files/safe_file.h"
#include "core/panel/run_state.h"
#include "core/read/line_reader.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {

constexpr int kShown = 100;
constexpr std::size_t kMostFiles = 1000;
/// How many system accounts are asked for one by one.
constexpr std::size_t kHandful = 8;
constexpr uid_t kFirstAccountId = 1000;
constexpr int kMostComplaints = 20;
constexpr std::size_t kLongestShown = 64;

/// Where the accounts of a service are.
enum class Kind { none, mail, ftp, system };

struct Service {
  const char* name;
  Kind kind;
};

constexpr Service kServices[] = {
    {"exim", Kind::mail},   {"dovecot", Kind::mail},  {"roundcube", Kind::mail}, {"squirrelmail", Kind::mail},
    {"proftpd", Kind::ftp}, {"pure-ftpd", Kind::ftp}, {"sshd", Kind::system},    {"phpmyadmin", Kind::system},
};

Kind kindOf(const char* service) {
  const auto* found = std::find_if(std::begin(kServices), std::end(kServices),
                                   [&](const Service& known) { return std::strcmp(known.name, service) == 0; });
  return found == std::end(kServices) ? Kind::none : found->kind;
}

/// As much of a name as a log line needs.
std::string shown(const char* name) {
  return name == nullptr ? "" : std::string(name, ::strnlen(name, kLongestShown));
}

/// Whether the panel may have such an account.
bool mayBeAccount(const char* name) {
  if (isAccountName(name)) return true;
  debug(kShown, "Tally::system_acount_is_suspended(%s): not a valid system username", shown(name).c_str());
  return false;
}

int tellUnknown(const char* name) {
  debug(kShown, "Tally::system_acount_is_suspended(%s): unable to get user_info", name);
  return 0;
}

/// 1 with a security-log line when the names of the file hold the account.
int tellSuspended(const char* name, const std::string& path, const SuspendedNames& names) {
  if (!names.contains(name)) return 0;
  securityLog("Tally::user_is_suspended_in_file(%s, %s): User is suspended.  Exempt from brute force count.", name,
              path.c_str());
  return 1;
}

bool fitsBuffer(const char* name, const char* path) {
  const std::size_t length = std::strlen(name);
  if (length < kFirstLineBuffer) return true;
  errorLog(
      "Tally::user_is_suspended_in_file('%s', '%s'): The lenght of the User (%d) is greater than the size of the "
      "buffer (%d)",
      shown(name).c_str(), path, static_cast<int>(length), static_cast<int>(kFirstLineBuffer));
  return false;
}

void tellUnreadable(const char* name, const std::string& path, const SuspendedNames& names) {
  errorLog("Tally::user_is_suspended_in_file(%s, %s): Cannot open file: %s", name, path.c_str(), names.error().c_str());
}

}  // namespace

// --- Files -----------------------------------------------------------------------------------------------------

SuspendedNames::SuspendedNames(const std::string& path) {
  const AsRoot root;
  const Descriptor file = openRegularFile(path.c_str());
  if (!file) {
    error_ = std::strerror(errno);
    return;
  }
  LineReader lines(file.get());
  for (std::string_view line; lines.next(line);) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view rest = line.substr(colon + 1);
    if (isSuspendedPassword(rest.substr(0, rest.find(':')))) names_.emplace(line.substr(0, colon));
  }
}

int user_is_suspended_in_file(const char* name, const char* path) {
  if (name == nullptr || path == nullptr || !fitsBuffer(name, path)) return 0;
  const SuspendedNames names(path);
  if (!names.error().empty()) tellUnreadable(name, path, names);
  return tellSuspended(name, path, names);
}

// --- System accounts -------------------------------------------------------------------------------------------

int system_acount_is_suspended(const char* name) {
  if (!mayBeAccount(name)) return 0;
  const AsRoot root;
  const passwd* account = ::getpwnam(name);
  const bool isOurs = account != nullptr && account->pw_uid >= kFirstAccountId;
  const spwd* shadow = account == nullptr ? nullptr : ::getspnam(name);
  if (shadow == nullptr) return tellUnknown(name);
  return isOurs && isSuspendedPassword(text_detail::part(shadow->sp_pwdp)) ? 1 : 0;
}

bool SuspendedSystemAccounts::contains(const char* name) {
  const auto known = known_.find(name);
  if (known != known_.end()) return known->second;
  if (!mayBeAccount(name)) return false;
  if (known_.size() < kHandful) return known_.emplace(name, system_acount_is_suspended(name) != 0).first->second;
  if (listed_) return tellUnknown(name) != 0;
  list();
  return contains(name);
}

void SuspendedSystemAccounts::list() {
  const AsRoot root;
  std::unordered_set<std::string> suspended;
  ::setspent();
  while (const spwd* shadow = ::getspent()) {
    if (isSuspendedPassword(text_detail::part(shadow->sp_pwdp))) suspended.emplace(shadow->sp_namp);
  }
  ::endspent();
  ::setpwent();
  while (const passwd* account = ::getpwent()) {
    known_.emplace(account->pw_name, account->pw_uid >= kFirstAccountId && suspended.contains(account->pw_name));
  }
  ::endpwent();
  listed_ = true;
}

// --- One scan --------------------------------------------------------------------------------------------------

bool SuspendedAccounts::isSuspended(const char* name, const char* service) {
  if (isDemo() || name == nullptr || *name == '\0' || service == nullptr || *service == '\0') return false;
  const bool isAddress = std::strchr(name, '@') != nullptr;
  switch (kindOf(service)) {
    case Kind::mail:
      return isAddress ? mailboxIsSuspended(name, service) : systemAccounts_.contains(name);
    case Kind::ftp:
      return isInFile(name, std::string(conf_.ftppasswd.view()));
    case Kind::system:
      return systemAccounts_.contains(name);
    case Kind::none:
      break;
  }
  if (unknownServices_.emplace(service).second) {
    errorLog("Unknown BFM service for suspend skip check: '%s'", service);
  }
  return false;
}

bool SuspendedAccounts::mailboxIsSuspended(const char* name, const char* service) {
  const char* at = std::strrchr(name, '@');
  // The domain becomes a part of a path.
  if (!isValidDomain(at + 1)) {
    debug(kShown, "Tally::user_is_suspended(%s, %s): '%s' is not a valid domain. Skipping exemption check.",
          shown(name).c_str(), service, shown(at + 1).c_str());
    return false;
  }
  const std::string mailbox(name, at);
  return isInFile(mailbox.c_str(), joined(conf_.emailvirtual, "/", at + 1, "/passwd"));
}

bool SuspendedAccounts::isInFile(const char* name, const std::string& path) {
  if (!fitsBuffer(name, path.c_str())) return false;
  const auto known = files_.find(path);
  if (known != files_.end()) return tellSuspended(name, path, known->second) != 0;
  if (files_.size() >= kMostFiles) files_.clear();
  const SuspendedNames& names = files_.emplace(path, path).first->second;
  if (!names.error().empty() && unreadableFiles_++ < kMostComplaints) tellUnreadable(name, path, names);
  return tellSuspended(name, path, names) != 0;
}

int user_is_suspended(const Config* conf, const char* name, const char* service) {
  return conf != nullptr && SuspendedAccounts(*conf).isSuspended(name, service) ? 1 : 0;
}

}  // namespace zvtaskq
