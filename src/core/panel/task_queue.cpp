#include "core/panel/task_queue.h"

#include <string>

#include "core/config/config.h"
#include "core/files/append_file.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

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
    debug(1000, "pushOnTaskQueue: Swapping httpd to be nginx for %s", line.getOrEmpty("value"));
    line.setParam("action", "nginx");
    softenRestart(line, false);
  }
  if (sys_conf->nginx_proxy && is(line, "action", "httpd")) {
    ConfigFile forProxy(&line);
    forProxy.setParam("action", "nginx");
    softenRestart(forProxy, true);
    static_cast<void>(pushOnTaskQueue("nginx", forProxy.getValue("value"), nullptr, &forProxy));
  }
  if (sys_conf->litespeed && is(line, "action", "httpd")) {
    debug(1000, "pushOnTaskQueue: Swapping httpd to be litespeed for %s", line.getOrEmpty("value"));
    line.setParam("action", "litespeed");
    softenRestart(line, true);
  }
  if (sys_conf->graceful_restarts && is(line, "action", "httpd") && is(line, "value", "restart")) {
    line.setParam("value", sys_conf->systemd ? "reload" : "graceful");
  }
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

int appendToQueue(const char* path, std::string_view lines, const struct stat* like) {
  const FailScope scope("queue_append");
  switch (appendLines(path, lines, "pushOnTaskQueue", like)) {
    case Appended::done:
      return 1;
    case Appended::locked:
      return fail(systemResult(), "Can't get lock on task queue");
    case Appended::failed:
      break;
  }
  return fail(systemResult(), "Unable to open task queue for appending");
}

}  // namespace zvtaskq
