#include "runner/startup.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/sys/environment.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "runner/monitor/services_table.h"
#include "runner/options.h"
#include "runner/pid_file.h"
#include "runner/run.h"
#include "runner/signals.h"

namespace zvtaskq {

namespace {

constexpr rlim_t kOpenFiles = 65535;

/// Nothing of what the caller left behind may matter, and nothing of a root process may be left behind in turn.
void shutOutside() {
  useCleanEnvironment();
  keepLimitsForChildren();
  ::umask(077);
  forbidDumps();
}

void takeRoot() {
  if (!setRootPriv()) debug(1, "error setting root priv\n");
  const Ids real = realIds(), effective = effectiveIds();
  debug(500, "root priv set: uid:%d gid:%d euid:%d egid:%d", static_cast<int>(real.user), static_cast<int>(real.group),
        static_cast<int>(effective.user), static_cast<int>(effective.group));
}

void reportUnreadableConfiguration(const Config& conf) {
  std::printf("Unable to read config file. Check the file permissions\n");
  errorLog("Unable to read config file. Check to make sure that %s.lock doesn't exist.",
           conf.getFilename() == nullptr ? "" : conf.getFilename());
}

void handOver(Config& conf) {
  useConfiguration(&conf);
  if (!conf.logdir.isEmpty()) conf.setErrLog(joined(conf.logdir, "/errortaskq.log").c_str());
}

bool isRoot() {
  if (realIds().user == 0 && effectiveIds().user == 0) return true;
  std::printf("zvTaskQ must be run as root\n");
  errorLog("zvTaskQ: Must be run as root");
  return false;
}

void enterPanel(const Config& conf) {
  if (!dropSupplementaryGroups()) errorLog("Unable to drop supplementary groups: %s", std::strerror(errno));
  if (conf.serverpath.isNull() || ::chdir(conf.serverpath) != 0) {
    errorLog("Unable to change to %s: %s", conf.serverpath.orEmpty(), std::strerror(errno));
  }
}

void raiseFileLimit() {
  const rlimit limit{kOpenFiles, kOpenFiles};
  if (::setrlimit(RLIMIT_NOFILE, &limit) == 0) return;
  const char* why = std::strerror(errno);
  errorLog("Error with setrlimit: %s", why);
  std::printf("Error with setrlimit: %s\n", why);
}

int redirectInput() {
  ::close(STDIN_FILENO);
  if (sys::open("/dev/null", O_RDONLY) == STDIN_FILENO) {
    // Opened close-on-exec like everything, but a standard stream is meant for children too.
    ::fcntl(STDIN_FILENO, F_SETFD, 0);
    return 1;
  }
  errorLogAndDebug(100, "failed to reopen stdin while setting as daemon: %s", std::strerror(errno));
  return 0;
}

Descriptor openPipeLog(const char* path) {
  constexpr mode_t mode = 0640;
  constexpr int flags = O_RDWR | O_APPEND | O_NONBLOCK;
  Descriptor made(sys::open(path, flags | O_CREAT | O_EXCL, mode));
  // What the umask of this process took away. One that is there keeps its mode.
  if (made) return sys::fchmod(made.get(), mode) == 0 ? std::move(made) : Descriptor();
  return Descriptor(sys::open(path, flags | O_CREAT, mode));
}

int redirectOutput(const Config& conf) {
  std::fflush(stdout);
  const Descriptor pipeLog = openPipeLog(conf.pipe_log);
  if (!pipeLog) {
    errorLogAndDebug(100, "failed to open pipe log %s: %s", conf.pipe_log.orEmpty(), std::strerror(errno));
    return 0;
  }
  if (::isatty(STDERR_FILENO) != 0) runFlags.terminal = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  ::dup2(pipeLog.get(), STDOUT_FILENO);
  ::dup2(pipeLog.get(), STDERR_FILENO);
  return 1;
}

int redirectStreams(const Config& conf) {
  const AsRoot root;
  return redirectInput() && redirectOutput(conf) ? 1 : 0;
}

}  // namespace

int runProgram(int argumentCount, char** arguments, Config& conf) {
  shutOutside();
  const Options options = parseArguments(argumentCount, arguments, conf);
  takeRoot();
  if (conf.error) {
    reportUnreadableConfiguration(conf);
    return 0;
  }
  handOver(conf);
  if (!isRoot()) return 1;
  enterPanel(conf);
  raiseFileLimit();

  const PidFile pidFile(conf.systemd);
  pidFile.removeStale();
  if (!pidFile.write()) return 1;
  setNoPriv();
  installSignalHandlers();
  if (!options.dodebug && !redirectStreams(conf)) return 1;

  debug(20, "staring queue");
  doQueue(conf);
  debug(20, "done queue");

  const AsRoot root;
  pidFile.remove();
  useConfiguration(nullptr);
  return 0;
}

}  // namespace zvtaskq
