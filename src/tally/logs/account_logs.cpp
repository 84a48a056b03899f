#include "tally/logs/account_logs.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "account/model/account_name.h"
#include "account/model/system_accounts.h"
#include "account/model/user_folder.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "core/tree/guarded_folder.h"
#include "core/tree/safe_walk.h"
#include "tally/logs/rotation.h"

namespace zvtaskq {

namespace {

constexpr const char* kPhpFolder = ".php";
constexpr const char* kPhpLog = "php-mail.log";
constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK;

/// What became of a folder that may be missing: 1 when it is, 0 when it cannot be opened, with a line that says why.
int withoutFolder(const std::string& path) {
  if (errno == ENOENT) return 1;
  if (errno == ELOOP || errno == ENOTDIR) {
    refusalLog(10, "Tally::rotate_log_up(%s): is hard or symbolic link", path.c_str());
  } else {
    errorLog("Tally::rotate_log_up: %s: %s", path.c_str(), std::strerror(errno));
  }
  return 0;
}

/// PHP may have been faster.
int makeLog(int folder, const std::string& folderPath) {
  const Descriptor log(sys::openat(folder, kPhpLog, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (log || errno == EEXIST) return 1;
  errorLog("Unable to make %s%s: %s", folderPath.c_str(), kPhpLog, std::strerror(errno));
  return 0;
}

}  // namespace

int rotatePhpMailLog(const char* account, const Config* conf) {
  if (conf->php_mail_log == 0 || isDemo()) return 1;
  const OpenedFolder home = openHome(account);
  if (!home) return 0;
  const AsUser user(systemAccounts().idsOf(account));
  if (!user.taken()) return 0;
  const std::string path = joined(home.path, "/", kPhpFolder);
  const Descriptor folder(sys::openat(home.folder.get(), kPhpFolder, kFolder));
  if (!folder) return withoutFolder(path);
  const int outcome = rotateLogIn(folder.get(), path + "/", kPhpLog, conf);
  return makeLog(folder.get(), path + "/") && outcome ? 1 : 0;
}

int rotateLoginKeyLogs(const char* account, const Config* conf) {
  if (!isAccountName(account, conf) || isDemo()) return 1;
  const AsUser panel(kPanelUser);
  const std::string path = accountFile(account, "login_keys");
  const Descriptor folder = openFolder(path.c_str());
  if (!folder) return withoutFolder(path);
  std::vector<std::string> names;
  if (!namesIn(folder.get(), names)) return withoutFolder(path);
  int outcome = 1;
  for (const std::string& name : names) {
    if (name.ends_with(".log")) outcome &= rotateLogIn(folder.get(), path + "/", name, conf);
  }
  return outcome;
}

}  // namespace zvtaskq
