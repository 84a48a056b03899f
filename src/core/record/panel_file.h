// Data files of the panel's own.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>

#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "core/sys/identity.h"
#include "core/sys/sys.h"

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

/// Changes a record of the panel's under its lock, from reading to writing. 0 with the reason in `result`.
[[nodiscard]] int changeRecord(const std::string& path, const std::function<void(ConfigFile&)>& change, Text& result);
/// The same for a list; one that is not there begins empty.
[[nodiscard]] int changeList(const std::string& path, const std::function<void(ListFile&)>& change, Text& result);

/// Whether a file of that kind belongs to the panel's user or to root.
bool isPanels(const struct stat& what);

/// Whether something stands at `path` that belongs to neither: it was planted, and is to be passed over. A security-log
/// line says so. Looks as root, at a link itself, and gives back the identity it finds.
bool isPlanted(const char* path);

// Both run under the panel's identity. Not open, with errno, on failure.

/// Opens a data file for reading, as `openRegularFile`. One that was planted counts as missing, with a security-log
/// line.
Descriptor openPanelFile(const char* path);
/// Opens it for appending and reading, and makes it (mode 0600) when there is none. What was planted there is moved out
/// of the way, with a security-log line. What was opened may still be no regular file.
Descriptor openPanelFileToAppend(const char* path);

}  // namespace zvtaskq
