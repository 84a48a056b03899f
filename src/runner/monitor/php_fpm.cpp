#include "runner/monitor/php_fpm.h"

#include <fnmatch.h>

#include <string>

#include "core/record/list_file.h"
#include "core/tree/folder_reader.h"

namespace zvtaskq {

namespace {

constexpr const char* kUnitFolders[] = {"/etc/systemd/system", "/lib/systemd/system", "/usr/lib/systemd/system"};
constexpr const char* kScriptFolders[] = {"/etc/init.d"};
constexpr std::string_view kUnitEnding = ".service";

bool isPhpFpm(const std::string& name) {
  return ::fnmatch("php-fpm*", name.c_str(), 0) == 0 || ::fnmatch("php*-fpm*", name.c_str(), 0) == 0;
}

void addFrom(const char* path, bool units, ListFile& services) {
  FolderReader folder(path);
  while (const dirent* entry = folder.next()) {
    std::string name = entry->d_name;
    if (units && !name.ends_with(kUnitEnding)) continue;
    if (units) name.resize(name.size() - kUnitEnding.size());
    // A unit that ends in "@" is a pattern for others, not a service.
    if (isPhpFpm(name) && isServiceName(name.c_str()) && !name.ends_with('@')) services.addElement(name.c_str());
  }
}

}  // namespace

bool isServiceName(const char* name) {
  const std::string_view text = name == nullptr ? std::string_view() : std::string_view(name);
  constexpr std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._@-";
  return !text.empty() && text[0] != '-' && text.find_first_not_of(allowed) == std::string_view::npos;
}

int installedPhpFpm(ListFile& services, bool systemd) {
  if (systemd) {
    for (const char* folder : kUnitFolders) addFrom(folder, true, services);
  } else {
    for (const char* folder : kScriptFolders) addFrom(folder, false, services);
  }
  return services.size() > 0 ? 1 : 0;
}

}  // namespace zvtaskq
