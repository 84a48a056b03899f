#include "core/panel/overrides.h"

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

bool isThere(const std::string& path) {
  const AsRoot root;
  return pathExists(path.c_str()) != 0;
}

}  // namespace

std::string customOrStock(const std::string& folder, const char* name) {
  std::string own = joined(folder, "/custom/", name);
  return isThere(own) ? own : joined(folder, "/", name);
}

std::string templatePath(const Config& conf, const char* file) {
  return customOrStock(joined(conf.templates), file);
}

std::string scriptPath(const Config& conf, const char* script) {
  return customOrStock(joined(conf.serverpath, "/scripts"), script);
}

std::string hookPath(const Config& conf, const char* script) {
  return joined(conf.serverpath, "/scripts/custom/", script);
}

bool hookExists(const Config& conf, const char* script) {
  return isThere(hookPath(conf, script));
}

}  // namespace zvtaskq
