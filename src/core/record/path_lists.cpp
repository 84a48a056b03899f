#include "core/record/path_lists.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "core/files/paths.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "core/text/text.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

/// The mode of a new folder is exactly the one asked for, without a moment in which it is another.
class WithoutUmask {
 public:
  WithoutUmask() : before_(::umask(0)) {}
  ~WithoutUmask() { ::umask(before_); }
  WithoutUmask(const WithoutUmask&) = delete;
  WithoutUmask& operator=(const WithoutUmask&) = delete;

 private:
  mode_t before_;
};

/// One folder, when it is not there yet.
int createFolder(const char* path, unsigned mode, ListFile* created) {
  {
    const WithoutUmask exactly;
    if (sys::mkdir(path, static_cast<mode_t>(mode)) == 0) {
      if (created != nullptr) created->addElement(path);
      return 1;
    }
  }
  const int error = errno;
  if (error == EEXIST && pathExists(path, PathKind::folder)) return 1;
  return fail(systemResult(), "Unable to create directory ", path, ": ", std::strerror(error));
}

/// Where the component of that depth ends.
std::size_t endOfComponent(const std::string& path, int depth) {
  int passed = 0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    if (path[i] == '/' && ++passed > depth) return i;
  }
  return path.size();
}

}  // namespace

int pathContainsHardLink(const char* path, ListFile* found) {
  struct stat what {};
  if (path == nullptr || sys::lstat(path, what) != 0) return 0;
  int count = 0;
  const auto look = [&](const TreeEntry& entry) {
    if (!S_ISREG(entry.what.st_mode) || entry.what.st_nlink < 2) return 1;
    ++count;
    if (found == nullptr) return 0;
    found->addElement(entry.path.c_str());
    return 1;
  };
  const int whole = walkTree(path, look);
  if (!whole && (count == 0 || found != nullptr)) {
    errorLog("pathContainsHardLink(%s): not all of it could be looked at: %s", path, std::strerror(errno));
  }
  return count > 0 || !whole ? 1 : 0;
}

int createPath(const char* path, unsigned mode, int startDepth, ListFile* created) {
  systemResult() = "";
  const std::string whole = path == nullptr ? "" : path;
  if (whole.empty()) return fail(systemResult(), "The path was empty or null");
  for (int depth = startDepth;; ++depth) {
    const std::size_t end = endOfComponent(whole, depth);
    if (!createFolder(whole.substr(0, end).c_str(), mode, created)) return 0;
    if (end == whole.size()) return 1;
  }
}

}  // namespace zvtaskq
