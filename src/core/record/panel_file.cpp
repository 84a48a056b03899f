#include "core/record/panel_file.h"

#include <cerrno>

#include "core/files/safe_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"

namespace zvtaskq {

namespace {

constexpr int kSuffixLength = 12;
/// Somebody who plants a file again and again may keep us from it, but not busy.
constexpr int kTries = 3;

/// Moves away what somebody else planted at the path. False, with errno as it was, when there is nothing like that.
bool moveAway(const char* path) {
  const int error = errno;
  struct stat what {};
  const std::string elsewhere = joined(path, ".", getRandText(kSuffixLength));
  const bool moved = sys::lstat(path, what) == 0 && !isPanels(what) && sys::rename(path, elsewhere.c_str()) == 0;
  errno = error;
  if (moved) securityLog("%s belonged to uid %u, and is not used: it is %s now", path, what.st_uid, elsewhere.c_str());
  return moved;
}

}  // namespace

int changeRecord(const std::string& path, const std::function<void(ConfigFile&)>& change, Text& result) {
  PanelRecord record(path);
  const RecordLock lock(record);
  if (!record.readFile()) return fail(result, record.result);
  change(record);
  return record.writeFile() ? 1 : fail(result, record.result);
}

int changeList(const std::string& path, const std::function<void(ListFile&)>& change, Text& result) {
  PanelList list(path);
  FileLock lock;
  if (!list.takeLock(lock)) return fail(result, "Unable to get Lock on file ", path);
  list.useLock = false;
  struct stat what {};
  const bool isThere = [&] {
    const AsUser panel(kPanelUser);
    return sys::lstat(path.c_str(), what) == 0 || errno != ENOENT;
  }();
  int done = !isThere || list.readFile();
  if (done) {
    change(list);
    done = list.writeFile();
  }
  list.releaseLock(lock);
  return done ? 1 : fail(result, list.result);
}

bool isPanels(const struct stat& what) {
  return what.st_uid == 0 || what.st_uid == getUID(kPanelUser);
}

bool isPlanted(const char* path) {
  const AsRoot root;
  struct stat what {};
  if (sys::lstat(path, what) != 0 || isPanels(what)) return false;
  securityLog("%s belongs to uid %u, not to %s: not read", path, what.st_uid, kPanelUser);
  return true;
}

Descriptor openPanelFile(const char* path) {
  struct stat what {};
  Descriptor file = openRegularFile(path, what);
  if (!file || isPanels(what)) return file;
  securityLog("%s belongs to uid %u, not to %s: not read", path, what.st_uid, kPanelUser);
  file.reset();
  errno = ENOENT;
  return file;
}

Descriptor openPanelFileToAppend(const char* path) {
  for (int i = 0; i < kTries; ++i) {
    Descriptor file(sys::open(path, O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600));
    struct stat what {};
    if (file && sys::fstat(file.get(), what) == 0 && isPanels(what)) return file;
    if (file) errno = EPERM;
    file.reset();
    if (!moveAway(path)) return file;
  }
  errno = EPERM;
  return {};
}

}  // namespace zvtaskq
