#include "core/tree/folder_names.h"

#include <cerrno>

#include "core/sys/privileges.h"
#include "core/tree/folder_reader.h"

namespace zvtaskq {

namespace {
constexpr int kFewQuestions = 64;
}

bool FolderNames::mayHave(const std::string& name) {
  if (asked_ <= kFewQuestions && ++asked_ > kFewQuestions) read();
  return !isKnown_ || names_.contains(name);
}

void FolderNames::read() {
  const AsRoot root;
  errno = 0;
  FolderReader entries(path_.c_str());
  while (const dirent* entry = entries ? entries.next() : nullptr) {
    if (std::string_view(entry->d_name).ends_with(ending_)) names_.emplace(entry->d_name);
  }
  isKnown_ = entries ? !entries.failed() : errno == ENOENT;
}

}  // namespace zvtaskq
