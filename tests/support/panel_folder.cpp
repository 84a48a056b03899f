#include "support/panel_folder.h"

#include <sys/stat.h>

#include <filesystem>

namespace zvtaskq::test {

PanelFolder::PanelFolder() {
  for (const char* name : {"admin", "virtual", "templates", "scripts/custom"}) makeFolder(name);
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

}  // namespace zvtaskq::test
