#include "core/system_layer.h"

#include "core/config.h"
#include "core/lock_file.h"
#include "core/sys.h"

namespace zvtaskq {

const Config* sys_conf = nullptr;

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
