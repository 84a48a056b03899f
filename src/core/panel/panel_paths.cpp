#include "core/panel/panel_paths.h"

#include "core/config/config.h"
#include "core/panel/run_state.h"

namespace zvtaskq {

std::string accountFile(const char* account, const char* file) {
  return file == nullptr ? joined(sys_conf->userdata, "/", account)
                         : joined(sys_conf->userdata, "/", account, "/", file);
}

std::string adminFile(const char* file) {
  return joined(sys_conf->admindir, "/", file);
}

std::string domainOwnersFile() {
  return joined(sys_conf->emailvirtual, "/domainowners");
}

}  // namespace zvtaskq
