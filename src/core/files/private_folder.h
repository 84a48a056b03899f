// Folders of our own in places where others may create entries too.
#pragma once

#include "core/sys/sys.h"

namespace zvtaskq {

/// Makes sure that `path` is a folder that the identity of the moment owns, with exactly the permission bits `mode`,
/// and opens it. A link, a folder of somebody else or anything else of that name is refused. Not open, with errno, on
/// failure.
Descriptor openPrivateFolder(const char* path, mode_t mode);
/// The same for the folder of that name in an open folder.
Descriptor openPrivateFolderAt(int parent, const char* name, mode_t mode);

}  // namespace zvtaskq
