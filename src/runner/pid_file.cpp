#include "runner/pid_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {
constexpr std::time_t kStaleAge = 2700;
constexpr mode_t kMode = 0644;
}  // namespace

PidFile::PidFile(bool systemd) : path_(std::string(systemd ? "/run/" : "/var/run/") + "zvtaskq" + ".pid") {}

void PidFile::removeStale() const {
  struct stat what {};
  if (sys::lstat(path(), what) != 0 || what.st_mtim.tv_sec >= std::time(nullptr) - kStaleAge) return;
  static_cast<void>(sys::unlink(path()));
  errorLog("ZvTaskQ didn't remove its pid file when it last quit, removing it now...");
}

int PidFile::write() const {
  const Descriptor file(sys::open(path(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK, kMode));
  const std::string text = std::to_string(::getpid()) + "\n";
  // Others read it, whatever the umask of this process.
  if (file && sys::fchmod(file.get(), kMode) == 0 && sys::writeAll(file.get(), text) == text.size()) {
    debug(200, "pidfile written");
    return 1;
  }
  const char* why = std::strerror(errno);
  const Ids real = realIds(), effective = effectiveIds();
  std::printf("Cannot create the pid file: %s uid:%d gid:%d euid:%d egid:%d : %s\n", path(),
              static_cast<int>(real.user), static_cast<int>(real.group), static_cast<int>(effective.user),
              static_cast<int>(effective.group), why);
  errorLog("Cannot create the pid file: %s uid:%d gid:%d euid:%d egid:%d %s", path(), static_cast<int>(real.user),
           static_cast<int>(real.group), static_cast<int>(effective.user), static_cast<int>(effective.group), why);
  return 0;
}

void PidFile::remove() const {
  static_cast<void>(sys::unlink(path()));
}

}  // namespace zvtaskq
