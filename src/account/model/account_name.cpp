#include "account/model/account_name.h"

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/text/names.h"

namespace zvtaskq {

bool isAccountName(const char* name, const Config* conf) {
  static const Settings defaults;
  const Settings& rules = conf == nullptr ? defaults : *conf;
  return isValidUsername(name, rules.max_username_length, rules.allow_upper_case_username,
                         rules.allow_numeric_username) != 0;
}

bool isAccountName(const char* name) {
  return isAccountName(name, sys_conf);
}

}  // namespace zvtaskq
