#include "tally/logs/web_rotation.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/panel/run_state.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"
#include "services/web/web_server_signal.h"
#include "tally/logs/mod_security_logs.h"
#include "tally/logs/web_logs.h"

namespace zvtaskq {

namespace {

constexpr const char* kScript = "tally_rotation_post.sh";
constexpr const char* kEnding = ".log";

void putAside(int folder, const std::string& folderPath, const std::string& name) {
  const std::string path = joined(folderPath, "/", name);
  struct stat what {};
  if (sys::lstatAt(folder, name.c_str(), what) != 0 || S_ISDIR(what.st_mode)) return;
  if (S_ISLNK(what.st_mode) || what.st_nlink > 1) {
    refusalLog(10, "Tally::rotate_apache_logs(%s): is hard or symbolic link", path.c_str());
    return;
  }
  if (sys::renameat(folder, name.c_str(), folder, (name + ".1").c_str()) == 0) return;
  errorLog("Error renaming %s to %s : %s", path.c_str(), (path + ".1").c_str(), std::strerror(errno));
}

void putAllAside(const std::string& folderPath) {
  const AsRoot root;
  const FailScope scope("web_log_rotation");
  const Descriptor folder = openGuardedFolder(folderPath.c_str());
  std::vector<std::string> names;
  if (!folder || !namesIn(folder.get(), names)) {
    errorLog("Tally::rotate_apache_logs: unable to read %s: %s", folderPath.c_str(), std::strerror(errno));
  }
  for (const std::string& name : names) {
    if (name.ends_with(kEnding)) putAside(folder.get(), folderPath, name);
  }
}

void runScript(const Config& conf, Text& result) {
  const std::string path = hookPath(conf, kScript);
  const HookAnswer answer = executeIfExists(path.c_str(), std::vector<Variable>());
  if (!answer.failed()) {
    stringCat(result, answer.result);
    return;
  }
  addResult(result, "<b>", "Script output", " ", path, "</b>: ", answer.error);
  errorLog("Tally::rotate_apache_logs: Rotation Post output: %s", answer.error.c_str());
}

}  // namespace

int rotate_apache_logs(const Config* conf, bool proxyPass, Text& result) {
  if (isDemo()) return 1;
  if (conf->nginx_proxy != 0 && !proxyPass) rotate_apache_logs(conf, true, result);
  putAllAside(proxyPass ? proxyLogFolder(*conf) : mainLogFolder(*conf));
  if (proxyPass) return 1;
  rotate_mod_security_logs(conf);
  // A server that was not told goes on writing to the renamed files, of which nothing is lost: it is in the logs.
  static_cast<void>(web_server::hup(*conf, &result));
  runScript(*conf, result);
  return 1;
}

}  // namespace zvtaskq
