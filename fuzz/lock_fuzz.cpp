// Lock files that somebody else left, of odd names and odd kinds: a lock is taken, says in one line who holds it, and
// is freed; nothing else in the folder changes.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "core/files/lock_file.h"
#include "core/sys/sys.h"
#include "support.h"

using namespace zvtaskq;
using namespace zvtaskq::fuzz;

namespace {

constexpr const char* kCanary = "canary";
/// Every lock counts as left behind, so that nobody waits for one.
constexpr int kAlwaysStale = -1;

/// A file name in this folder from any bytes.
std::string nameFrom(std::string text) {
  std::replace(text.begin(), text.end(), '/', '_');
  return text.c_str();
}

bool isThere(const std::string& path) {
  struct stat what {};
  return sys::lstat(path.c_str(), what) == 0;
}

std::string contentOf(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "re");
  require(file != nullptr, "no lock file", path);
  char room[4096];
  const std::size_t size = std::fread(room, 1, sizeof room, file);
  std::fclose(file);
  return {room, size};
}

/// What somebody else left where the lock goes.
void plant(const std::string& lockPath, unsigned kind, const std::string& content) {
  if (kind == 1) writeInput(lockPath.c_str(), content);
  if (kind == 2) require(::symlink(kCanary, lockPath.c_str()) == 0, "symlink");
  if (kind == 3) require(::mkfifo(lockPath.c_str(), 0600) == 0, "mkfifo");
}

/// One line that a person and a parser can read: this process, the time, the caller.
void requireSaysWho(const std::string& line, const std::string& caller) {
  const std::vector<std::string> lines = linesOf(line);
  require(lines.size() == 1 && line.back() == '\n', "one whole line", line);
  int pid = 0;
  long long time = 0;
  int length = 0;
  require(std::sscanf(lines[0].c_str(), "%d=time=%lld&caller_location=%n", &pid, &time, &length) == 2 && length > 0,
          "form", line);
  require(pid == ::getpid() && time > 0, "holder", line);
  require(printable(caller).starts_with(std::string_view(line).substr(
              static_cast<std::size_t>(length), line.size() - 1 - static_cast<std::size_t>(length))),
          "caller", line);
}

void requireRefuses(const char* path, const char* why) {
  char reason[kLockReasonSize] = "";
  require(getLock(path, kAlwaysStale, nullptr, reason) == 0, "refused", path == nullptr ? "(null)" : path);
  require(std::strncmp(reason, why, std::strlen(why)) == 0, "reason", reason);
  require(std::memchr(reason, '\0', sizeof reason) != nullptr, "reason ends");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  standAside();
  writeInput(kCanary, "whole\n");
  requireRefuses(nullptr, "empty file_name");
  requireRefuses("", "empty file_name");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  const unsigned kind = input.choice(4);
  const bool says = input.flag();
  const std::string content = input.rest();
  const std::string path = nameFrom(content.substr(0, content.find('\n')));
  const std::string caller = content.substr(0, content.find('\0'));
  const std::string lockPath = path + ".lock";
  if (path.size() < 2) {
    requireRefuses(path.c_str(), path.empty() ? "empty file_name" : "short file_name");
    return 0;
  }
  if (lockPath.size() > 255) {
    requireRefuses(path.c_str(), "open error for ");
    return 0;
  }
  setLockDebug(says);
  plant(lockPath, kind, content);
  FileLock lock;
  require(lock.take(path.c_str(), kAlwaysStale, caller.c_str(), nullptr) == 1 && lock.held(), "taken", path);
  if (says) {
    requireSaysWho(contentOf(lockPath), caller);
  } else {
    require(contentOf(lockPath).empty(), "an empty lock file", lockPath);
  }
  // A lock that was broken meanwhile is somebody else's.
  const bool broken = kind == 1;
  if (broken) {
    require(::rename(lockPath.c_str(), "aside") == 0, "aside");
    writeInput(lockPath.c_str(), "");
  }
  lock.release();
  require(isThere(lockPath) == broken, "freed", lockPath);
  freeLock(path.c_str());
  require(!isThere(lockPath) && contentOf(kCanary) == "whole\n", "left behind", lockPath);
  static_cast<void>(::unlink("aside"));
  return 0;
}
