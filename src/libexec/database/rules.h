// What an account may have at the database server: names, and what users may do.
#pragma once

#include <string>
#include <string_view>

#include "core/sys/sys.h"

namespace zvtaskq {

class DatabaseRules {
 public:
  /// Reads the panel's configuration file and opens its folder of accounts, under the identity of the moment. What
  /// keeps it from that is why nothing may be.
  void read(const char* configuration);

  enum class Name { isThere, isNew };

  // Both give why not, empty for what may be.

  /// Whether a database of that name is the account's: it begins with "<account>_", and with no longer name of an
  /// account and "_". Behind that a new one has letters and digits, with `allow_db_underscore` underscores too.
  std::string whyNotDatabase(std::string_view account, std::string_view name, Name which) const;
  /// The same for a user, who may also be called as the account; `host` is an address, a name, or a pattern of these.
  std::string whyNotUser(std::string_view account, std::string_view name, std::string_view host, Name which) const;

  /// The privileges that a user gets on a database when no others are asked for, as statements list them, by
  /// `database_extended_user_privileges`.
  std::string allPrivileges() const;
  /// Those of a list separated by commas, in any case, as far as users may have them. Empty, with why in `error`, when
  /// one of them is not among these.
  std::string privileges(std::string_view list, std::string& error) const;

 private:
  std::string whyNotOwn(std::string_view account, std::string_view name) const;
  std::string whyNotNew(std::string_view account, std::string_view name, std::size_t longest) const;
  bool isAccount(std::string_view name) const;

  /// Why there are no rules.
  std::string missing_ = "the panel's configuration is not given";
  Descriptor accounts_;
  bool mayUnderscore_ = false;
  bool isExtended_ = false;
};

}  // namespace zvtaskq
