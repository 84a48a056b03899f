#include "services/web/web_server_signal.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/files/safe_file.h"
#include "core/panel/task_queue.h"
#include "core/process/child.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"

namespace zvtaskq::web_server {

namespace {

/// Seconds for a server to test its configuration.
constexpr int kTestTime = 120;
constexpr std::string_view kReplaced = " (deleted)";

struct Server {
  const char* name;
  /// What its program is called.
  std::string programs[2];
  int signal;
  /// What tests its configuration, and the word for that; empty for a server that does so itself.
  std::string tester;
  const char* testWord;
};
const Server& nginx() {
  static const Server server{"Nginx", {"nginx", "nginx"}, SIGHUP, "", nullptr};
  return server;
}
const Server& apache() {
  static const Server server{"Apache", {"httpd", "apache2"}, SIGUSR1, "/usr/sbin/apachectl", "configtest"};
  return server;
}

/// The number that the file begins with; 0 with the reason in `why`.
pid_t readPid(const char* path, std::string& why) {
  const Descriptor file = openRegularFile(path);
  struct stat what {};
  char digits[32];
  const ssize_t length = file ? sys::read(file.get(), digits, sizeof digits) : -1;
  if (length < 0 || sys::fstat(file.get(), what) != 0) {
    why = joined("unable to read ", path, ": ", std::strerror(errno));
    return 0;
  }
  if (what.st_uid != 0 || (what.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    why = joined(path, " can be written by others than root");
    return 0;
  }
  pid_t pid = 0;
  const auto end = std::from_chars(digits, digits + length, pid);
  if (end.ec == std::errc() && pid > 1) return pid;
  why = joined(path, " holds no process id");
  return 0;
}

/// Whether the process, which the caller keeps from being replaced by another, runs one of the server's programs.
bool runs(pid_t pid, const Server& server) {
  char target[PATH_MAX];
  const ssize_t length = ::readlink(joined("/proc/", std::to_string(pid), "/exe").c_str(), target, sizeof target);
  if (length <= 0) return false;
  std::string_view program(target, static_cast<std::size_t>(length));
  // An update has replaced the file of a server that has not been restarted since.
  if (program.ends_with(kReplaced)) program.remove_suffix(kReplaced.size());
  program.remove_prefix(program.rfind('/') + 1);
  return program == server.programs[0] || program == server.programs[1];
}

bool passesTest(const Server& server, std::string& why) {
  if (server.tester.empty()) return true;
  ChildPlan plan = ChildPlan::program(server.tester, {server.testWord});
  plan.identity = kRootIds;
  plan.errors = ChildPlan::Stream::collect;
  plan.timeLimit = kTestTime;
  const ChildResult test = runChild(plan);
  if (test.status == 0) return true;
  why = joined("its configuration fails the test: ", trimmed(printable(test.output)));
  return false;
}

int send(const Server& server, const char* pidFile, std::string& why) {
  const AsRoot root;
  const pid_t pid = readPid(pidFile, why);
  if (pid == 0) return 0;
  // The descriptor stands for this process alone: should it end now, no other gets its signal.
  const Descriptor process(sys::openProcess(pid));
  if (!process || !runs(pid, server)) {
    why = joined("process ", std::to_string(pid), " of ", pidFile, " is not running it");
    return 0;
  }
  if (!passesTest(server, why)) return 0;
  if (sys::signalProcess(process.get(), server.signal) == 0) return 1;
  why = joined("process ", std::to_string(pid), " takes no signal: ", std::strerror(errno));
  return 0;
}

int tell(const Server& server, const char* pidFile, Text* result) {
  std::string why;
  if (send(server, pidFile, why)) return 1;
  errorLog("Unable to reload %s: %s", server.name, why.c_str());
  if (result != nullptr) addResult(*result, "Unable to reload ", server.name, ": ", why);
  return 0;
}

int queueReload(const char* service) {
  return pushOnTaskQueue(service, "reload");
}

}  // namespace

int hup(const Config& conf, Text* result) {
  if (conf.nginx_proxy != 0) {
    const int proxy = tell(nginx(), conf.nginx_pid.orEmpty(), result);
    return tell(apache(), conf.apache_pid.orEmpty(), result) && proxy ? 1 : 0;
  }
  if (conf.litespeed != 0) return queueReload("litespeed");
  if (conf.nginx != 0) return tell(nginx(), conf.nginx_pid.orEmpty(), result);
  return tell(apache(), conf.apache_pid.orEmpty(), result);
}

int reloadPhp(const std::string& version) {
  const std::string program = "php-fpm" + version;
  const std::string pidFile = joined("/run/php/php", version, "-fpm.pid");
  const AsRoot root;
  if (pathExists(pidFile.c_str(), PathKind::file) == 0) return 1;
  return tell({"PHP-FPM", {program, program}, SIGUSR2, "/usr/sbin/" + program, "-t"}, pidFile.c_str(), nullptr);
}

}  // namespace zvtaskq::web_server
