#include "runner/queue/queue_place.h"

#include "core/tree/guarded_folder.h"

namespace zvtaskq {

QueuePlace::QueuePlace(const std::string& path)
    : path_(path),
      parts_(path),
      joined_(path.substr(0, path.rfind('/') + 1)),
      temporary_(parts_.name + ".tmp"),
      retiredFolder_("." + parts_.name + ".done") {}

int QueuePlace::open() {
  if (!folder_) folder_ = openGuardedFolder(parts_.folder.c_str());
  return folder_ ? 1 : 0;
}

}  // namespace zvtaskq
