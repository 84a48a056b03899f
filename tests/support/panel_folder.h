// The configuration and folders of a panel of a test's own, which every identity can work in.
#pragma once

#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
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

  Config conf{nullptr};

 private:
  Folder folder_;

 public:
  LogCapture logs;
};

}  // namespace zvtaskq::test
