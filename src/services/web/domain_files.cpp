#include "services/web/domain_files.h"

#include <cerrno>

#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/tree/folder_reader.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kLongest = 256UL << 10;
constexpr std::size_t kDigits = 16;
constexpr std::string_view kCertificate = ".pem";

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

std::vector<std::string> DomainFiles::certificatesOf(const std::string& domain) const {
  std::vector<std::string> found;
  const std::string start = domain + ".";
  for (auto name = names_.lower_bound(start); name != names_.end() && name->starts_with(start); ++name) {
    const std::string_view rest = std::string_view(*name).substr(start.size());
    const bool isOne = rest.size() == kDigits + kCertificate.size() && rest.ends_with(kCertificate) &&
                       rest.find_first_not_of("0123456789abcdef") == kDigits;
    if (isOne) found.push_back(*name);
  }
  return found;
}

int DomainFiles::read(const std::string& name, std::string& text) const {
  const Descriptor file(sys::openat(folder_.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat what {};
  if (!file || sys::fstat(file.get(), what) != 0) return 0;
  errno = EINVAL;
  return S_ISREG(what.st_mode) && isPanels(what) && sys::readAll(file.get(), text, kLongest) ? 1 : 0;
}

}  // namespace zvtaskq
