#include "core/tree/tree_size.h"

#include <cerrno>
#include <optional>

#include "core/tables/linked_files.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

class Measure {
 public:
  explicit Measure(std::optional<uid_t> owner) : owner_(owner) {}

  int visit(const TreeEntry& entry) {
    if (entry.leaving) return 1;
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
  /// Sizes that a double could not hold are never shared out.
  static long long part(long long whole, double share) {
    return share < 1 ? static_cast<long long>(static_cast<double>(whole) * share) : whole;
  }

  std::optional<uid_t> owner_;
  LinkedFiles links_;
};

TreeSize measure(const char* path, std::optional<uid_t> owner) {
  Measure all(owner);
  const auto visit = [&](const TreeEntry& entry) { return all.visit(entry); };
  if (path != nullptr && !walkTree(path, visit) && errno != ENOENT) all.size.incomplete = true;
  return all.size;
}

}  // namespace

TreeSize measureTree(const char* path) {
  return measure(path, {});
}

TreeSize measureTreeOf(const char* path, uid_t owner) {
  return measure(path, owner);
}

}  // namespace zvtaskq
