#include "core/tables/linked_files.h"

#include <string_view>

namespace zvtaskq {

namespace {

constexpr std::size_t kMostRemembered = 2'000'000;

/// What tells one file of the machine from all others.
struct FileKey {
  dev_t device;
  ino_t number;
};
static_assert(sizeof(FileKey) == sizeof(dev_t) + sizeof(ino_t));

}  // namespace

double LinkedFiles::share(const struct stat& what) {
  const bool isFolder = S_ISDIR(what.st_mode);
  if (!isFolder && what.st_nlink < 2) return 1;
  const FileKey key{what.st_dev, what.st_ino};
  const auto mark = seen_.markOf({reinterpret_cast<const char*>(&key), sizeof key});
  if (seen_.size() < kMostRemembered) return seen_.addMark(mark) ? 1 : 0;
  if (seen_.hasMark(mark)) return 0;
  return isFolder ? 1 : 1 / static_cast<double>(what.st_nlink);
}

}  // namespace zvtaskq
