// Folders in an account's home, opened so that the account cannot lead root elsewhere.
#pragma once

#include <string>
#include <vector>

#include "core/sys/identity.h"
#include "core/sys/sys.h"

namespace zvtaskq {

/// A folder that is held open, and what messages call it.
struct OpenedFolder {
  Descriptor folder;
  std::string path;
  explicit operator bool() const { return folder.isOpen(); }
};

/// The home of a system account, which must belong to it. Works as root, and leaves the process at nobody. Not open,
/// with an error-log line, for an unknown account and for a home that is missing, somebody else's or behind a link.
OpenedFolder openHome(const char* user);

/// Opens the folder `steps` below `base` as `user`, one step after another, crossing no link. What is missing is made,
/// with mode 0711 and the last with `mode`, each with the error-log line "Path %s was missing. Re-added it. NOTE: other
/// folders are probably missing.". Not open, with an error-log line and for a link a security-log line too, on failure.
/// Leaves the process at nobody.
OpenedFolder openUserFolder(const char* user, OpenedFolder base, const std::vector<std::string>& steps, mode_t mode);

}  // namespace zvtaskq
