#include "core/tree/folder_reader.h"

#include <cerrno>
#include <string_view>

namespace zvtaskq {

namespace {
constexpr int kForReading = O_RDONLY | O_DIRECTORY | O_NONBLOCK;
}

FolderReader::FolderReader(const char* path) : FolderReader(Descriptor(sys::open(path, kForReading))) {}

FolderReader::FolderReader(int folder) : FolderReader(Descriptor(sys::openat(folder, ".", kForReading))) {}

FolderReader::FolderReader(Descriptor folder) : entries_(folder ? ::fdopendir(folder.get()) : nullptr) {
  // It is the stream's from here on.
  if (entries_) static_cast<void>(folder.release());
}

const dirent* FolderReader::next() {
  while (entries_) {
    errno = 0;
    const dirent* entry = ::readdir(entries_.get());
    failed_ = entry == nullptr && errno != 0;
    if (entry == nullptr) return nullptr;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return entry;
  }
  return nullptr;
}

bool FolderReader::isFolder(const dirent& entry) const {
  return isOfKind(entry, DT_DIR, S_IFDIR);
}

bool FolderReader::isFile(const dirent& entry) const {
  return isOfKind(entry, DT_REG, S_IFREG);
}

/// As the folder itself tells, or by a look where it does not.
bool FolderReader::isOfKind(const dirent& entry, unsigned char type, mode_t kind) const {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == type;
  struct stat what {};
  return sys::lstatAt(descriptor(), entry.d_name, what) == 0 && (what.st_mode & S_IFMT) == kind;
}

}  // namespace zvtaskq
