#include "core/tree/safe_walk.h"
#include "core/tree/folder_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

namespace zvtaskq {

namespace {

bool isWayOut(std::string_view part) {
  return part == "..";
}

bool staysBelow(std::string_view path) {
  if (path.empty() || path.front() == '/') return false;
  while (!path.empty()) {
    const std::size_t slash = path.find('/');
    if (isWayOut(path.substr(0, slash))) return false;
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
  }
  return true;
}

/// The same step by step, for kernels without a call for it.
Descriptor openByComponents(int root, std::string_view path, int flags, mode_t mode) {
  Descriptor folder;
  while (true) {
    const int from = folder ? folder.get() : root;
    const std::size_t slash = path.find('/');
    if (slash == std::string_view::npos) {
      return Descriptor(sys::openat(from, std::string(path).c_str(), flags | O_NOFOLLOW, mode));
    }
    const std::string part(path.substr(0, slash));
    path.remove_prefix(slash + 1);
    if (path.empty()) path = ".";
    if (part.empty()) continue;
    Descriptor next(sys::openat(from, part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW));
    if (!next) return next;
    folder = std::move(next);
  }
}

constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK;
/// Levels that are gone down again to find back from a folder that was moved.
constexpr std::size_t kMostWayBack = 100;

/// Bytes of names that are read before the files of these names are looked at.
constexpr std::size_t kNamesAtOnce = std::size_t{256} * 1024;

/// Names one behind the other, each with its terminator: a string for each would cost more than the walk itself.
class NameRow {
 public:
  void add(std::string_view name) { names_.append(name).push_back('\0'); }
  bool isEmpty() const { return names_.empty(); }
  std::size_t bytes() const { return names_.size(); }
  void clear() { names_.clear(); }
  /// The name at `place`, which moves to the next; null behind the last.
  const char* next(std::size_t& place) const {
    if (place >= names_.size()) return nullptr;
    const char* name = names_.data() + place;
    place += std::strlen(name) + 1;
    return name;
  }
  std::string takeLast() {
    const std::size_t before = names_.size() < 2 ? std::string::npos : names_.rfind('\0', names_.size() - 2);
    const std::size_t start = before == std::string::npos ? 0 : before + 1;
    std::string name(names_.data() + start);
    names_.resize(start);
    return name;
  }

 private:
  std::string names_;
};

/// A folder on the way from the top of a walk to where it is.
struct Level {
  struct stat what;
  NameRow folders;
  std::size_t pathLength;
};

/// The walk's one open folder and the way back from it.
class TreeWalk {
 public:
  TreeWalk(int (*visit)(void*, const TreeEntry&), void* context, int root, const char* top)
      : visit_(visit), context_(context), path_(top), root_(root), top_(top) {}

  int run() {
    struct stat what {};
    if (sys::lstatAt(root_, top_, what) != 0) return 0;
    const int answer = tell(root_, top_, what, false);
    if (!answer) return 0;
    if (!S_ISDIR(what.st_mode) || answer == kPassBy) return 1;
    if (!enter(root_, top_, what)) return 0;
    while (!levels_.empty() && !ended_) {
      if (!(levels_.back().folders.isEmpty() ? leave() : descend())) break;
    }
    if (failed_) errno = error_;
    return ended_ || failed_ ? 0 : 1;
  }

 private:
  int tell(int folder, const char* name, const struct stat& what, bool leaving) {
    const int answer = visit_(context_, TreeEntry{folder, name, path_, what, leaving});
    if (!answer) ended_ = true;
    return answer;
  }

  /// Opens a folder that has been met, and meets all that stands in it.
  int enter(int parent, const char* name, const struct stat& expected) {
    Descriptor folder(sys::openat(parent, name, kFolder));
    // Where it has gone to, or whether it is no more, is its owner's affair.
    if (!folder && errno == ENOENT) return 0;
    struct stat what {};
    if (!folder || sys::fstat(folder.get(), what) != 0) return remember();
    if (!sameFile(what, expected)) {
      errno = ESTALE;
      return remember();
    }
    here_ = std::move(folder);
    levels_.push_back({what, {}, path_.size()});
    return meetContent();
  }

  int meetContent() {
    FolderReader entries(here_.get());
    if (!entries) return remember();
    for (bool more = true; more;) {
      names_.clear();
      more = readNames(entries);
      if (entries.failed()) remember();
      if (!meetNames()) return 0;
    }
    return 1;
  }

  /// Fills the row of names. False at the end of the folder, and on an error.
  bool readNames(FolderReader& entries) {
    while (names_.bytes() < kNamesAtOnce) {
      const dirent* entry = entries.next();
      if (entry == nullptr) return false;
      names_.add(entry->d_name);
    }
    return true;
  }

  int meetNames() {
    std::size_t place = 0;
    while (const char* name = names_.next(place)) {
      struct stat what {};
      // What is gone by now needs no visit.
      if (sys::lstatAt(here_.get(), name, what) != 0) continue;
      if (S_ISDIR(what.st_mode)) {
        levels_.back().folders.add(name);
        continue;
      }
      extend(name);
      const int goOn = tell(here_.get(), name, what, false);
      path_.resize(levels_.back().pathLength);
      if (!goOn) return 0;
    }
    return 1;
  }

  int descend() {
    const std::string name = levels_.back().folders.takeLast();
    struct stat what {};
    if (sys::lstatAt(here_.get(), name.c_str(), what) != 0) return 1;
    extend(name);
    const int answer = tell(here_.get(), name.c_str(), what, false);
    if (!answer) return 0;
    const std::size_t depth = levels_.size();
    if (S_ISDIR(what.st_mode) && answer != kPassBy) enter(here_.get(), name.c_str(), what);
    // One folder that cannot be read does not keep the others from being visited.
    if (levels_.size() == depth) path_.resize(levels_.back().pathLength);
    return ended_ ? 0 : 1;
  }

  /// Goes back up, making sure that up is where the walk came from, and meets the folder again.
  int leave() {
    const Level done = std::move(levels_.back());
    levels_.pop_back();
    if (levels_.empty()) {
      here_.reset();
      return tell(root_, top_, done.what, true);
    }
    Descriptor above(sys::openat(here_.get(), "..", kFolder));
    if (!isLevel(above, levels_.size() - 1)) return findBack();
    here_ = std::move(above);
    const std::string name =
        path_.substr(levels_.back().pathLength + (path_[levels_.back().pathLength] == '/' ? 1 : 0));
    const int goOn = tell(here_.get(), name.c_str(), done.what, true);
    path_.resize(levels_.back().pathLength);
    return goOn;
  }

  bool isLevel(const Descriptor& folder, std::size_t level) const {
    struct stat what {};
    return folder && sys::fstat(folder.get(), what) == 0 && sameFile(what, levels_[level].what);
  }

  /// The folder that was left stands elsewhere by now. Goes down again from the top, through those that still are where
  /// the walk came through; what is below them is given up, and so is what is very deep: whoever moves folders again
  /// and again loses his own, and takes little of the time of the others.
  int findBack() {
    Descriptor folder(sys::openat(root_, top_, kFolder));
    if (!isLevel(folder, 0)) {
      errno = ESTALE;
      return lost();
    }
    std::size_t reached = 1;
    for (; reached < levels_.size() && reached < kMostWayBack; ++reached) {
      const std::size_t start = levels_[reached - 1].pathLength, end = levels_[reached].pathLength;
      const std::string name = path_.substr(start, end - start);
      Descriptor next(sys::openat(folder.get(), name.c_str() + (name.front() == '/' ? 1 : 0), kFolder));
      if (!isLevel(next, reached)) break;
      folder = std::move(next);
    }
    if (reached < levels_.size()) {
      errno = ESTALE;
      remember();
      levels_.erase(levels_.begin() + static_cast<std::ptrdiff_t>(reached), levels_.end());
    }
    here_ = std::move(folder);
    path_.resize(levels_.back().pathLength);
    return 1;
  }

  void extend(std::string_view name) {
    if (path_.empty() || path_.back() != '/') path_ += '/';
    path_ += name;
  }

  /// Notes that something was not visited, and why the first such thing was not.
  int remember() {
    if (!failed_) error_ = errno;
    failed_ = true;
    return 0;
  }

  int lost() {
    ended_ = true;
    return remember();
  }

  int (*visit_)(void*, const TreeEntry&);
  void* context_;
  std::string path_;
  int root_;
  const char* top_;
  Descriptor here_;
  std::vector<Level> levels_;
  NameRow names_;
  bool ended_ = false;
  bool failed_ = false;
  int error_ = 0;
};

}  // namespace

Descriptor openBeneath(int root, const char* path, int flags, mode_t mode) {
  if (path == nullptr || !staysBelow(path)) {
    errno = path == nullptr || *path == '\0' ? ENOENT : EXDEV;
    return Descriptor();
  }
  Descriptor opened(sys::openBeneath(root, path, flags, mode));
  if (opened || errno != ENOSYS) return opened;
  return openByComponents(root, path, flags, mode);
}

Descriptor openFolder(const char* path) {
  return Descriptor(sys::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK));
}

int walkTreeAt(int root, const char* path, int (*visit)(void* context, const TreeEntry& entry), void* context) {
  return TreeWalk(visit, context, root, path).run();
}

}  // namespace zvtaskq
