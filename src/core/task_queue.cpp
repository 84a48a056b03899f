#include "core/task_queue.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "core/config.h"
#include "core/config_file.h"
#include "core/fail_point.h"
#include "core/lock_file.h"
#include "core/log.h"
#include "core/privileges.h"
#include "core/sys.h"
#include "core/system_layer.h"
#include "core/system_result.h"

namespace zvtaskq {

namespace {

const char* valueOf(const ConfigFile& line) {
  const char* value = line.getValue("value");
  return value == nullptr ? "" : value;
}

bool is(const ConfigFile& line, const char* name, const char* value) {
  return line.isValue(name, value) != 0;
}

/// pure-ftpd takes the place of proftpd, and has no signal to read its files again. False when the line is dropped.
bool rewriteForFtpServer(ConfigFile& line) {
  if (!sys_conf->pureftp) return true;
  if (is(line, "action", "proftpd")) line.setParam("action", "pure-ftpd");
  if (!is(line, "action", "pure-ftpd")) return true;
  if (!is(line, "value", "reread") && !is(line, "value", "reload")) return true;
  debug(100, "pure-ftpd does not accept HUP signals (reread or reload). Ignoring.");
  return false;
}

void softenRestart(ConfigFile& line, bool gracefulToo) {
  if (is(line, "value", "restart") || (gracefulToo && is(line, "value", "graceful"))) line.setParam("value", "reload");
}

void rewriteForWebServer(ConfigFile& line) {
  if (sys_conf->nginx && is(line, "action", "httpd")) {
    debug(1000, "pushOnTaskQueue: Swapping httpd to be nginx for %s", valueOf(line));
    line.setParam("action", "nginx");
    softenRestart(line, false);
  }
  if (sys_conf->nginx_proxy && is(line, "action", "httpd")) {
    ConfigFile forProxy(&line);
    forProxy.setParam("action", "nginx");
    softenRestart(forProxy, true);
    static_cast<void>(pushOnTaskQueue("nginx", forProxy.getValue("value"), nullptr, &forProxy));
    setRootPriv();
  }
  if (sys_conf->litespeed && is(line, "action", "httpd")) {
    debug(1000, "pushOnTaskQueue: Swapping httpd to be litespeed for %s", valueOf(line));
    line.setParam("action", "litespeed");
    softenRestart(line, true);
  }
  if (sys_conf->graceful_restarts && is(line, "action", "httpd") && is(line, "value", "restart")) {
    line.setParam("value", sys_conf->systemd ? "reload" : "graceful");
  }
}

/// Whether the file ends in the middle of a line, left there by a writer that died: what is appended must not
/// become a part of it.
bool endsInsideLine(int fd, off_t size) {
  char last = '\n';
  return size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

/// Appends with one write. A write that falls short is taken back.
bool appendWhole(int fd, std::string_view lines) {
  std::string line(lines);
  struct stat before {};
  if (sys::fstat(fd, before) != 0 || !S_ISREG(before.st_mode)) return false;
  if (endsInsideLine(fd, before.st_size)) line.insert(0, 1, '\n');
  if (sys::writeAll(fd, line) == line.size()) return true;
  const int error = errno;
  static_cast<void>(sys::ftruncate(fd, before.st_size));
  errno = error;
  return false;
}

}  // namespace

int pushOnTaskQueue(const char* action, const char* value, const char* type, const ConfigFile* record) {
  systemResult() = "";
  if (isDemo()) return fail(systemResult(), "That feature has been disabled for the demo");
  const AsRoot root;
  ConfigFile line(nullptr);
  line.setParam("action", action);
  line.setParam("value", value);
  if (type != nullptr) line.setParam("type", type);
  if (record != nullptr) line.fill(record);
  if (!rewriteForFtpServer(line)) return 1;
  rewriteForWebServer(line);

  const Text encoded = line.createPostString(1);
  return appendToQueue(sys_conf->taskqueue, joined(encoded, "\n"));
}

int appendToQueue(const char* path, std::string_view lines) {
  const FailScope scope("queue_append");
  FileLock lock;
  if (!lock.take(path, kLockMaximumAge, "pushOnTaskQueue", nullptr)) {
    return fail(systemResult(), "Can't get lock on task queue");
  }
  const Descriptor file(sys::open(path, O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW, 0600));
  if (!file || !appendWhole(file.get(), lines)) {
    errorLog("Unable to append to %s: %s", path, std::strerror(errno));
    return fail(systemResult(), "Unable to open task queue for appending");
  }
  if (sys::fchmod(file.get(), 0600) != 0 || sys::fchown(file.get(), getUID(kPanelUser), getGID(kPanelUser, 0)) != 0) {
    errorLog("Unable to give %s to %s: %s", path, kPanelUser, std::strerror(errno));
  }
  return 1;
}

}  // namespace zvtaskq
