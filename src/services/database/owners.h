// Which account a database, or a user of the database server, belongs to: their names alone say so.
#pragma once

#include <string_view>

#include "core/tables/name_table.h"

namespace zvtaskq {

class ListFile;

/// The rule over the accounts of a moment. A database belongs to the account with the longest name that stands before
/// one of the "_" of its name: "a_b_c" to "a_b" where there is such an account, else to "a".
class DatabaseOwners {
 public:
  /// All accounts, sorted or not; and with `oneMore` that one as well, as if it were there.
  explicit DatabaseOwners(const ListFile& accounts, const char* oneMore = nullptr);
  DatabaseOwners(const DatabaseOwners&) = delete;
  DatabaseOwners& operator=(const DatabaseOwners&) = delete;

  /// The account's name, valid as long as this object; empty when no account owns it.
  std::string_view ofDatabase(std::string_view database) const;
  /// The same for a user of the database server, who may also have the very name of his account.
  std::string_view ofUser(std::string_view user) const;
  /// Whether the account may create a database of that name.
  bool mayOwn(std::string_view account, std::string_view database) const { return ofDatabase(database) == account; }
  bool isAccount(std::string_view name) const { return accounts_.find(name) != NameTable::kNone; }

 private:
  NameTable accounts_;
};

}  // namespace zvtaskq
