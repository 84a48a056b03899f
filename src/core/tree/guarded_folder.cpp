#include "core/tree/guarded_folder.h"
#include "core/tree/folder_reader.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

namespace zvtaskq {

namespace {

constexpr int kMostLinks = 40;
constexpr int kOnTheWay = O_PATH | O_DIRECTORY | O_NOFOLLOW;

/// The folder reached so far, and what is left to go.
class Way {
 public:
  explicit Way(const char* path) : rest_(path) {}

  Descriptor walk() {
    if (rest_.empty()) {
      errno = ENOENT;
      return {};
    }
    if (!enter(AT_FDCWD, rest_.front() == '/' ? "/" : ".")) return {};
    while (!rest_.empty()) {
      const std::size_t slash = rest_.find('/');
      const std::string part = rest_.substr(0, slash);
      rest_.erase(0, slash == std::string::npos ? rest_.size() : slash + 1);
      if (!part.empty() && part != "." && !step(part.c_str())) return {};
    }
    return Descriptor(sys::openat(here_.get(), ".", O_RDONLY | O_DIRECTORY));
  }

 private:
  int step(const char* part) {
    if (!onlyRoots_ && std::string_view(part) == "..") return refuse();
    if (enter(here_.get(), part)) return 1;
    const int error = errno;
    struct stat what {};
    if (sys::lstatAt(here_.get(), part, what) != 0 || !S_ISLNK(what.st_mode)) {
      errno = error;
      return 0;
    }
    return onlyRoots_ && what.st_uid == 0 && ++links_ <= kMostLinks ? follow(part) : refuse();
  }

  int enter(int from, const char* part) {
    Descriptor next(sys::openat(from, part, kOnTheWay));
    struct stat what {};
    if (!next || sys::fstat(next.get(), what) != 0) return 0;
    here_ = std::move(next);
    onlyRoots_ = onlyRoots_ && what.st_uid == 0 && (what.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return 1;
  }

  int follow(const char* part) {
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(here_.get(), part, target, sizeof target);
    if (length <= 0) return 0;
    rest_.insert(0, std::string(target, static_cast<std::size_t>(length)) + "/");
    return rest_.front() == '/' ? enter(AT_FDCWD, "/") : 1;
  }

  static int refuse() {
    errno = ELOOP;
    return 0;
  }

  std::string rest_;
  Descriptor here_;
  /// Nobody but root could have changed anything from the top down to here.
  bool onlyRoots_ = true;
  int links_ = 0;
};

}  // namespace

Descriptor openGuardedFolder(const char* path) {
  return Way(path == nullptr ? "" : path).walk();
}

int namesIn(int folder, std::vector<std::string>& names) {
  FolderReader entries(folder);
  while (const dirent* entry = entries.next()) names.emplace_back(entry->d_name);
  return entries && !entries.failed() ? 1 : 0;
}

}  // namespace zvtaskq
