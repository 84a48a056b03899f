#include "services/web/domain_files.h"

#include <cerrno>

#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/tree/folder_reader.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongest = 256UL << 10;

}  // namespace

DomainFiles::DomainFiles(const std::string& account) : path_(accountFile(account.c_str(), "domains")) {
  folder_ = openFolder(path_.c_str());
  if (!folder_) {
    isRead_ = errno == ENOENT;
    return;
  }
  FolderReader entries(folder_.get());
  if (!entries) return;
  while (const dirent* entry = entries.next()) names_.insert(entry->d_name);
  isRead_ = !entries.failed();
}

int DomainFiles::read(const std::string& name, std::string& text) const {
  const Descriptor file(sys::openat(folder_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat what {};
  if (!file || sys::fstat(file.get(), what) != 0) return 0;
  errno = EINVAL;
  return S_ISREG(what.st_mode) && isPanels(what) && sys::readAll(file.get(), text, kLongest) ? 1 : 0;
}

}  // namespace zvtaskq
