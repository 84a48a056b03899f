// What is to be done at the database server as soon as it answers again: one wish an account, the last one. They stand
// in "<admindir>/state/database_wishes".
#pragma once

#include <string>
#include <vector>

#include "core/record/list_file.h"

namespace zvtaskq {

enum class DatabaseWish { none, lock, unlock };

/// Whether there is any wish: one look at the file system. Under any identity, which is the same afterwards.
bool hasDatabaseWishes();
/// The accounts with a wish. 0 with an error-log line when they cannot be read.
[[nodiscard]] int listDatabaseWishes(std::vector<std::string>& accounts);
/// The account's wish; for an unlock `stay` gets the users that are to stay locked. One that cannot be read is none,
/// with an error-log line.
DatabaseWish readDatabaseWish(const char* account, ListFile& stay);
/// Notes a wish in the place of an earlier one; `none` removes it. 0 with an error-log line when it cannot be kept.
[[nodiscard]] int setDatabaseWish(const char* account, DatabaseWish wish, const ListFile* stay = nullptr);

}  // namespace zvtaskq
