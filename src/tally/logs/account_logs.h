// Logs of one account that a tally keeps from growing.
#pragma once

namespace zvtaskq {

class Config;

// Both work by the rules of rotate_log_up, in demonstration mode not at all, and give back the identity they find. 1
// when there is nothing to do; 0 with error-log lines when a log could not be rotated.

/// With `php_mail_log`, rotates ".php/php-mail.log" of the account's home and makes the log anew, mode 0600, for PHP to
/// add to. Works as the account's user, through no link; a home without ".php" is left as it is.
[[nodiscard]] int rotatePhpMailLog(const char* account, const Config* conf);

/// Rotates the logs of the account's login keys, one a key: "login_keys/<key>.log" in its data folder. Works as the
/// panel's user.
[[nodiscard]] int rotateLoginKeyLogs(const char* account, const Config* conf);

}  // namespace zvtaskq
