// What a suspension found and must give back as it was: "suspended.list" of an account, and "<domain>.suspended" of a
// domain that is suspended alone.
//
// It is written before the first mark and goes after the last: as long as it stands, and does not say that all was
// given back, marks may be ours. A suspension that was cut short, and an activation, go by it however far the other
// came.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "core/text/text.h"

namespace zvtaskq {

struct SuspensionNotes {
  /// Nothing is read yet.
  explicit SuspensionNotes(std::string path) : file(std::move(path)) {}

  /// Reads the file; there being none is no failure. 0 with the reason in `result`.
  [[nodiscard]] int read(Text& result);
  [[nodiscard]] int write(Text& result) const;
  /// 1 also when there is none.
  [[nodiscard]] int remove(Text& result);

  std::string file;
  /// There is one.
  bool exists = false;
  /// Everything was given back already; only the record did not say so yet.
  bool isOver = false;
  /// The passwords that were marked before, and stay so: "system", "mail <mailbox>@<domain>", "ftp <name>",
  /// "database <user>".
  std::set<std::string> blocked;
  /// What the system account's day of expiry was, as the system keeps it: days since 1970, or empty for none. Absent
  /// when it was not changed.
  std::optional<std::string> expires;
  /// There was an installed crontab.
  bool hadCrontab = false;
  /// The users of the database server that were locked before; absent until the account's users are to be locked.
  std::optional<std::set<std::string>> lockedDatabaseUsers;
};

/// The file of an account.
std::string suspensionFile(const char* account);

}  // namespace zvtaskq
