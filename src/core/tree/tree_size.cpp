#include "core/tree/tree_size.h"

#include <cerrno>
#include <optional>

#include "core/sys/safe_point.h"
#include "core/sys/sys.h"
#include "core/tables/linked_files.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr unsigned kBetweenLooks = 1024;

class Measure {
 public:
  Measure(std::optional<uid_t> owner, Deadline end) : owner_(owner), end_(end) {}

  int visit(const TreeEntry& entry) {
    if (entry.leaving) return 1;
    if (isOver()) return 0;
    const double share = links_.share(entry.what);
    if (share == 0) return kPassBy;
    if (owner_ && entry.what.st_uid != *owner_) return 1;
    if (!S_ISDIR(entry.what.st_mode)) size.bytes += part(entry.what.st_size, share);
    size.blocks += part(entry.what.st_blocks, share);
    ++size.inodes;
    return 1;
  }

  TreeSize size;

 private:
  /// Looked up now and then: the clock costs as much as a file.
  bool isOver() {
    if (size.isCutShort || end_ == Deadline::max() || ++visited_ % kBetweenLooks != 0) return size.isCutShort;
    atSafePoint();
    return size.isCutShort = Deadline::clock::now() > end_;
  }

  /// Sizes that a double could not hold are never shared out.
  static long long part(long long whole, double share) {
    return share < 1 ? static_cast<long long>(static_cast<double>(whole) * share) : whole;
  }

  std::optional<uid_t> owner_;
  Deadline end_;
  unsigned visited_ = 0;
  LinkedFiles links_;
};

TreeSize measureAt(int root, const char* path, std::optional<uid_t> owner, Deadline end) {
  Measure all(owner, end);
  const auto visit = [&](const TreeEntry& entry) { return all.visit(entry); };
  if (path != nullptr && !walkTreeAt(root, path, visit) && errno != ENOENT) all.size.incomplete = true;
  return all.size;
}

}  // namespace

TreeSize measureTree(const char* path) {
  return measureAt(AT_FDCWD, path, {}, Deadline::max());
}

TreeSize measureTreeOf(const char* path, uid_t owner) {
  return measureAt(AT_FDCWD, path, owner, Deadline::max());
}

TreeSize measureBeneath(int root, const char* path, std::optional<uid_t> owner, Deadline end) {
  const PathParts parts(path);
  const Descriptor folder = openBeneath(root, parts.folder.c_str(), O_PATH | O_DIRECTORY);
  if (folder) return measureAt(folder.get(), parts.name.c_str(), owner, end);
  TreeSize nothing;
  nothing.incomplete = errno != ENOENT;
  return nothing;
}

}  // namespace zvtaskq
