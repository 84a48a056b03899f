// Where the panel's own state stands: journals, stamps, marks, notes, kept lines.
//
// Everybody's processes may make entries in `admindir`, so what the panel alone reads and writes has a folder of its
// own there, "<admindir>/state", which nobody else can look into.
#pragma once

#include <string>

#include "core/sys/sys.h"

namespace zvtaskq {

/// The path of a file or folder of that name in the state folder. `openStateFolder` makes the folder.
std::string stateFile(const std::string& name);

/// Opens the state folder, or with `name` the folder of that name in it, for reading and for work relative to it. What
/// is missing is made: mode 0700 of the panel's user; what root made is given to that user. Anything of that name that
/// belongs to neither is moved out of the way, with a security-log line, and never used; a link is not followed.
///
/// Works as root and gives back the identity it finds. Not open, with errno, on failure; nothing is logged then.
Descriptor openStateFolder(const char* name = nullptr);

}  // namespace zvtaskq
