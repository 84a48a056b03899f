// What the PHP of an account may not do: the list "<admindir>/state/php_limits", a pair an account, its value an
// encoded record with `open_basedir` and `safemode`, each ON or OFF.
#pragma once

#include "core/record/panel_file.h"

namespace zvtaskq {

struct PhpLimits {
  /// It opens files below the account's home alone.
  bool openBasedir = true;
  /// It starts no programs.
  bool safeMode = false;
};

class PhpLimitList {
 public:
  /// Reads the list; one that is not there has nobody.
  PhpLimitList();
  /// False, after an error-log line, when there is one that cannot be read: what was asked for nobody knows then, and
  /// what stands has to stay.
  bool isKnown() const { return isKnown_; }
  /// Those of an account; of one that is not listed, what new domains have.
  PhpLimits of(const char* account) const;

 private:
  PanelRecord list_;
  bool isKnown_ = true;
};

/// Makes the list anew from the domains' records (`open_basedir`, `safemode`; missing, what new domains have): an
/// account has one pool of PHP for all its domains, so what one of them asks for holds for all. An account with a
/// record that cannot be read keeps its line, or without one gets both limits. When the list has changed, the rewrite
/// of the web servers is queued. 0 with an error-log line. May be called under any identity; leaves nobody.
[[nodiscard]] int rebuildPhpLimits();
/// Takes the line of an account that is deleted away: it would be that of the next of its name. 0 with a line in
/// `result`. May be called under any identity; leaves nobody.
[[nodiscard]] int forgetPhpLimits(const char* account, Text& result);

}  // namespace zvtaskq
