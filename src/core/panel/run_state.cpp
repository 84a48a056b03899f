#include "core/panel/run_state.h"

#include "core/config/config.h"
#include "core/files/lock_file.h"
#include "core/sys/sys.h"

namespace zvtaskq {

const Config* sys_conf = nullptr;
RunFlags runFlags;

namespace {
bool demo = false;
}

void useConfiguration(const Config* conf) {
  sys_conf = conf;
  setLockDebug(conf != nullptr && conf->lock_debug);
  struct stat what {};
  demo = conf != nullptr && sys::lstat(joined(conf->serverpath, "/conf/demo").c_str(), what) == 0;
}

bool isDemo() {
  return demo;
}

}  // namespace zvtaskq
