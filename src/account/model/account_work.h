// What every work on an account begins with.
#pragma once

#include <string>

#include "account/model/account_holder.h"
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
  /// The same, and reads the record and the notes of a suspension.
  [[nodiscard]] int open(Text& result);
  /// The same, and looks up whose all of it is.
  [[nodiscard]] int openWhole(Text& result);
  /// By the record.
  bool isSuspended() const;

  const char* account;
  AccountLock lock;
  int lockError;
  PanelRecord record;
  AccountHolder holder;
  SuspensionNotes notes;
};

/// Queues the line that rewrites the account's web configuration. 0 with the reason in `result`.
[[nodiscard]] int queueWebRewrite(const char* account, Text& result);
/// The same for the zone of a domain.
[[nodiscard]] int queueZoneRewrite(const char* domain, Text& result);

}  // namespace zvtaskq
