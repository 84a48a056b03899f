#include "tally/logs/panel_logs.h"

#include <string>

#include "core/config/config.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "tally/logs/rotation.h"

namespace zvtaskq {

namespace {

constexpr const char* kLogs[] = {"/error.log", "/errortaskq.log", "/system.log", "/security.log", "/login.log"};
constexpr long long kMegabyte = 1024 * 1024;

void rotateIfLarge(const std::string& path, const Config* conf, bool isHeldOpen) {
  struct stat what {};
  if (sys::lstat(path.c_str(), what) != 0 || !S_ISREG(what.st_mode)) return;
  if (what.st_size > conf->log_rotate_size * kMegabyte) {
    static_cast<void>(rotate_log_up(path.c_str(), conf, 0, isHeldOpen));
  }
}

}  // namespace

void rotatePanelLogs(const Config* conf) {
  if (conf->log_rotate_size <= 0) return;
  const AsRoot root;
  for (const char* log : kLogs) {
    if (!conf->logdir.isEmpty()) rotateIfLarge(joined(conf->logdir, log), conf, false);
  }
  reopenLogs();
  if (!conf->pipe_log.isEmpty()) rotateIfLarge(std::string(conf->pipe_log.view()), conf, true);
}

}  // namespace zvtaskq
