// The administrator's scripts around what is done to an account: "user_<what>_pre.sh", which vetoes it by failing, and
// "user_<what>_post.sh".
#pragma once

#include "core/record/config_file.h"

namespace zvtaskq {

/// One of them: what is done, to which account, and what the scripts learn besides its record.
struct AccountHooks {
  /// "create", "destroy", "suspend" or "activate".
  const char* what;
  const char* account;
  /// Null for none.
  const ConfigFile* record;
  /// A further pair for the scripts; a null name for none.
  const char* name = nullptr;
  const char* value = nullptr;

  /// 0 when there is a script before it that forbids it; its words are a line of `result`.
  [[nodiscard]] int allow(Text& result) const;
  /// Runs the script behind it. That it failed is told in the error log.
  void tell() const;
};

}  // namespace zvtaskq
