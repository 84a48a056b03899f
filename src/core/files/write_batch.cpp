#include "core/files/write_batch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "core/sys/log.h"

namespace zvtaskq {

namespace {
/// Each holds one descriptor or two.
constexpr std::size_t kMost = 100;
}  // namespace

std::shared_ptr<const Descriptor> WriteBatch::folderOf(const char* path) const {
  const bool isLast = !files_.empty() && files_.back()->folder() == PathParts(path).folder;
  return isLast ? files_.back()->openFolder() : nullptr;
}

void WriteBatch::add(std::unique_ptr<SafeFile> file) {
  file->startFlush();
  files_.push_back(std::move(file));
  if (files_.size() >= kMost) static_cast<void>(commit());
}

int WriteBatch::commit() {
  const std::vector<std::unique_ptr<SafeFile>> files = std::exchange(files_, {});
  std::vector<const SafeFile*> placed;
  for (const std::unique_ptr<SafeFile>& file : files) {
    if (file->flush() && file->rename()) {
      placed.push_back(file.get());
    } else {
      errorLog("Unable to move %s to %s : %s", file->temporaryPath(), file->path().c_str(), std::strerror(errno));
      whole_ = 0;
    }
  }
  // Those of one folder stand together.
  std::sort(placed.begin(), placed.end(),
            [](const SafeFile* a, const SafeFile* b) { return a->folder() < b->folder(); });
  for (std::size_t i = 0; i < placed.size(); ++i) {
    if (i == 0 || placed[i]->folder() != placed[i - 1]->folder()) placed[i]->flushFolder();
  }
  return whole_;
}

}  // namespace zvtaskq
