// The configuration and folders of a panel of a test's own, which every identity can work in.
#pragma once

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "support/fixtures.h"

namespace zvtaskq::test {

class PanelFolder {
 public:
  PanelFolder();
  ~PanelFolder() { useConfiguration(nullptr); }
  PanelFolder(const PanelFolder&) = delete;
  PanelFolder& operator=(const PanelFolder&) = delete;

  std::string path(const std::string& name) const { return folder_.path(name); }
  /// Makes a folder below the panel's, with those on the way.
  void makeFolder(const std::string& name) const;
  /// A script below the panel's "scripts".
  void script(const std::string& name, const std::string& body) const { writeScript(path("scripts/" + name), body); }
  /// A data file that every identity may read and write.
  void put(const std::string& name, const std::string& text) const;

  Config conf{nullptr};

 private:
  Folder folder_;

 public:
  LogCapture logs;
};

}  // namespace zvtaskq::test
