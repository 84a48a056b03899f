#include "services/database/owners.h"

#include "core/record/list_file.h"

namespace zvtaskq {

DatabaseOwners::DatabaseOwners(const ListFile& accounts, const char* oneMore) {
  for (int i = 0; i < accounts.size(); ++i) accounts_.add(accounts.getElementAt(i));
  if (oneMore != nullptr) accounts_.add(oneMore);
}

std::string_view DatabaseOwners::ofDatabase(std::string_view database) const {
  for (std::size_t end = database.rfind('_'); end != std::string_view::npos && end > 0;
       end = database.rfind('_', end - 1)) {
    const std::uint32_t number = accounts_.find(database.substr(0, end));
    if (number != NameTable::kNone) return accounts_.at(number);
  }
  return {};
}

std::string_view DatabaseOwners::ofUser(std::string_view user) const {
  const std::uint32_t number = accounts_.find(user);
  return number != NameTable::kNone ? accounts_.at(number) : ofDatabase(user);
}

}  // namespace zvtaskq
