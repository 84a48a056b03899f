#include "libexec/database/rules.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <vector>

#include "core/config/settings.h"
#include "core/record/panel_file.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongestDatabase = 64;
constexpr std::size_t kLongestUser = 80;
constexpr std::size_t kLongestHost = 60;
constexpr std::string_view kOfHosts = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.:%_/-";

struct Privilege {
  std::string_view name;
  /// One that only `database_extended_user_privileges` gives.
  bool isExtended;
};
/// All that stays within the one database.
constexpr Privilege kPrivileges[] = {{"SELECT", false},       {"INSERT", false},
                                     {"UPDATE", false},       {"DELETE", false},
                                     {"CREATE", false},       {"DROP", false},
                                     {"REFERENCES", false},   {"INDEX", false},
                                     {"ALTER", false},        {"CREATE TEMPORARY TABLES", false},
                                     {"LOCK TABLES", false},  {"CREATE VIEW", true},
                                     {"SHOW VIEW", true},     {"CREATE ROUTINE", true},
                                     {"ALTER ROUTINE", true}, {"EXECUTE", true},
                                     {"EVENT", true},         {"TRIGGER", true}};

bool isLetterOrDigit(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool isSame(std::string_view a, std::string_view b) {
  const auto same = [](char x, char y) {
    return std::toupper(static_cast<unsigned char>(x)) == std::toupper(static_cast<unsigned char>(y));
  };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

}  // namespace

void DatabaseRules::read(const char* configuration) {
  PanelRecord record(configuration);
  record.useLock = false;
  Settings settings;
  Settings::putRecordDefaults(record);
  if (!record.readFile()) {
    missing_ = joined(configuration, " cannot be read: ", record.result.view());
    return;
  }
  settings.load(record);
  accounts_ = Descriptor(sys::open(settings.userdata, O_RDONLY | O_DIRECTORY));
  missing_ = accounts_ ? "" : joined(settings.userdata, ": ", std::strerror(errno));
  mayUnderscore_ = settings.allow_db_underscore;
  isExtended_ = settings.database_extended_user_privileges;
}

bool DatabaseRules::isAccount(std::string_view name) const {
  struct stat what {};
  return sys::lstatAt(accounts_.get(), std::string(name).c_str(), what) == 0 && S_ISDIR(what.st_mode);
}

std::string DatabaseRules::whyNotOwn(std::string_view account, std::string_view name) const {
  if (!missing_.empty()) return missing_;
  const bool isAName =
      std::all_of(account.begin(), account.end(), [](char c) { return isLetterOrDigit(c) || c == '_' || c == '-'; });
  if (account.empty() || !isAName || !isAccount(account)) return joined("there is no account ", account);
  if (name.size() <= account.size() + 1 || !name.starts_with(account) || name[account.size()] != '_') {
    return joined(name, " does not begin with ", account, "_");
  }
  for (std::size_t place = name.find('_', account.size() + 1); place != std::string_view::npos;
       place = name.find('_', place + 1)) {
    const std::string_view longer = name.substr(0, place);
    if (longer.find('/') == std::string_view::npos && isAccount(longer)) return joined(name, " belongs to ", longer);
  }
  return "";
}

std::string DatabaseRules::whyNotNew(std::string_view account, std::string_view name, std::size_t longest) const {
  const std::string_view rest = name.substr(account.size() + 1);
  const bool isRight =
      std::all_of(rest.begin(), rest.end(), [&](char c) { return isLetterOrDigit(c) || (c == '_' && mayUnderscore_); });
  if (!isRight) return joined(name, " holds what may not be in a name");
  return name.size() <= longest ? "" : joined(name, " is longer than ", std::to_string(longest), " characters");
}

std::string DatabaseRules::whyNotDatabase(std::string_view account, std::string_view name, Name which) const {
  std::string why = whyNotOwn(account, name);
  return why.empty() && which == Name::isNew ? whyNotNew(account, name, kLongestDatabase) : why;
}

std::string DatabaseRules::whyNotUser(std::string_view account, std::string_view name, std::string_view host,
                                      Name which) const {
  const bool isHost =
      !host.empty() && host.size() <= kLongestHost && host.find_first_not_of(kOfHosts) == std::string_view::npos;
  if (!isHost) return joined(host, " is no host that a user may come from");
  // The account's own name is his whatever others are called.
  if (name == account) return whyNotOwn(account, joined(account, "_x"));
  std::string why = whyNotOwn(account, name);
  return why.empty() && which == Name::isNew ? whyNotNew(account, name, kLongestUser) : why;
}

std::string DatabaseRules::allPrivileges() const {
  std::vector<std::string_view> names;
  for (const Privilege& one : kPrivileges) {
    if (isExtended_ || !one.isExtended) names.push_back(one.name);
  }
  return joinedWith(", ", names);
}

std::string DatabaseRules::privileges(std::string_view list, std::string& error) const {
  std::vector<std::string_view> names;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(','), list.size());
    const std::string_view name = trimmed(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
    const auto* found = std::find_if(std::begin(kPrivileges), std::end(kPrivileges), [&](const Privilege& one) {
      return isSame(one.name, name) && (isExtended_ || !one.isExtended);
    });
    if (found == std::end(kPrivileges)) {
      error = joined(name, " is no privilege that a user may have");
      return "";
    }
    names.push_back(found->name);
  }
  return joinedWith(", ", names);
}

}  // namespace zvtaskq
