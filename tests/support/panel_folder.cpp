#include "support/panel_folder.h"

namespace zvtaskq::test {

PanelFolder::PanelFolder() {
  for (const char* name : {"admin", "virtual", "templates", "scripts/custom"}) makeFolder(name);
  // Scripts are run out of folders that nobody else can write to.
  for (const char* name : {"", "scripts", "scripts/custom"}) ::chmod(path(name).c_str(), 0755);
  conf.serverpath = folder_.path().c_str();
  conf.admindir = path("admin").c_str();
  conf.emailvirtual = path("virtual").c_str();
  conf.templates = path("templates").c_str();
  useConfiguration(&conf);
}

void PanelFolder::makeFolder(const std::string& name) const {
  std::filesystem::create_directories(path(name));
  ::chmod(path(name).c_str(), 0777);
}

void PanelFolder::put(const std::string& name, const std::string& text) const {
  writeText(path(name), text);
  ::chmod(path(name).c_str(), 0666);
}

}  // namespace zvtaskq::test
