// Whether a text can be the name of an account, by the administrator's rules.
#pragma once

namespace zvtaskq {

class Config;

/// Whether accounts may have that name: a letter, then letters, digits, "-" and "_", at most `max_username_length` in
/// all; capitals with `allow_upper_case_username`, a digit in front with `allow_numeric_username`. It says nothing of
/// whether there is such an account. False for null and empty. A null configuration is one that sets none of these.
bool isAccountName(const char* name, const Config* conf);
/// By the configuration in force.
bool isAccountName(const char* name);

}  // namespace zvtaskq
