// Opening a folder whose way may lead through places where others can plant links.
#pragma once

#include <string>
#include <vector>

#include "core/sys/sys.h"

namespace zvtaskq {

/// Opens the folder at `path` for reading, going down from "/" (from the working directory for a relative path) one
/// descriptor after another, so that nothing that is swapped meanwhile leads elsewhere.
///
/// Links are not followed, with one exception: an administrator may have moved a system folder such as "/var/log". A
/// link that belongs to root, in a folder that nobody but root could have put it into (all folders above belong to
/// root and may be written by root alone), is followed, and its target is walked by the same rule. ".." is taken under
/// the same condition.
///
/// Works under the identity of the moment. Not open on failure, with errno: ELOOP for a link that is not followed.
Descriptor openGuardedFolder(const char* path);

/// Adds the names of what stands in an open folder, but for "." and "..", in no order. 0 with errno when not all of
/// them could be read.
[[nodiscard]] int namesIn(int folder, std::vector<std::string>& names);

}  // namespace zvtaskq
