// Files with several names, and folders that are mounted in several places, so that none is counted twice.
#pragma once

#include <sys/stat.h>

#include "core/tables/id_set.h"

namespace zvtaskq {

/// How much of a file or folder is to be counted under the name at hand: all of it, or nothing when it was met under
/// another name. Two million folders and files with several names are remembered (64 megabytes at most); of further
/// files each name counts its share, so that a folder full of links takes neither the memory nor the figures away.
class LinkedFiles {
 public:
  /// 0 to 1.
  double share(const struct stat& what);

 private:
  IdSet seen_;
};

}  // namespace zvtaskq
