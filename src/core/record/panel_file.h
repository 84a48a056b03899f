// Data files of the panel's own.
#pragma once

#include <string>

#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/identity.h"

namespace zvtaskq {

/// A record that is read and written as the panel's user, whose file it is.
class PanelRecord : public ConfigFile {
 public:
  explicit PanelRecord(const std::string& path) : ConfigFile(path.c_str()) { belongsTo(kPanelUser); }
};

/// The same for a list.
class PanelList : public ListFile {
 public:
  explicit PanelList(const std::string& path) : ListFile(path.c_str()) { belongsTo(kPanelUser); }
};

}  // namespace zvtaskq
