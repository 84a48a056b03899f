// What every work on an account begins with.
#pragma once

#include <functional>
#include <string>

#include "account/lifecycle/account_holder.h"
#include "account/model/account_lock.h"
#include "account/model/suspension_notes.h"
#include "core/record/panel_file.h"

namespace zvtaskq {

/// An account that is worked on by nobody else meanwhile.
struct AccountWork {
  explicit AccountWork(const char* account);

  /// Whether the work may begin: not in a demonstration, not with a name that cannot be an account's, and not while
  /// another process holds the account. 0 with a line in `result`.
  [[nodiscard]] int begin(Text& result) const;
  /// The same, and reads the record, the notes of a suspension, and whose all of it is.
  [[nodiscard]] int open(Text& result);
  /// By the record.
  bool isSuspended() const;

  const char* account;
  AccountLock lock;
  int lockError;
  PanelRecord record;
  AccountHolder holder;
  SuspensionNotes notes;
};

/// Changes a record of the panel's under its lock, from reading to writing. 0 with the reason in `result`.
[[nodiscard]] int changeRecord(const std::string& path, const std::function<void(ConfigFile&)>& change, Text& result);
/// The same for a list; one that is not there begins empty.
[[nodiscard]] int changeList(const std::string& path, const std::function<void(ListFile&)>& change, Text& result);

/// Queues the line that rewrites the account's web configuration. 0 with the reason in `result`.
[[nodiscard]] int queueWebRewrite(const char* account, Text& result);

/// The words of a list joined by "," that are in either, each once.
std::string wordsOfBoth(std::string_view words, std::string_view more);
/// Those of the first that are not in the other.
std::string wordsWithout(std::string_view words, std::string_view others);

}  // namespace zvtaskq
