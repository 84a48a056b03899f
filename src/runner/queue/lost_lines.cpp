#include "runner/queue/lost_lines.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "core/files/private_folder.h"
#include "core/panel/panel_paths.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

constexpr std::size_t kKept = 20;

/// Sorts by time: "20261122-213005.123456789".
std::string stampNow() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  std::tm local{};
  ::localtime_r(&now.tv_sec, &local);
  char text[64];
  std::snprintf(text, sizeof text, "%.4d%.2d%.2d-%.2d%.2d%.2d.%.9ld", local.tm_year + 1900, local.tm_mon + 1,
                local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec);
  return text;
}

/// Across file systems nothing can be renamed: a copy becomes whole under another name first.
bool copyInto(int folder, const char* from, const char* to) {
  const Descriptor source(sys::open(from, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  const std::string partial = std::string(to) + ".part";
  const Descriptor copy(sys::openat(folder, partial.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600));
  if (!source || !copy) return false;
  std::vector<char> block(65536);
  ssize_t got = 0;
  while ((got = sys::read(source.get(), block.data(), block.size())) > 0) {
    const std::string_view text(block.data(), static_cast<std::size_t>(got));
    if (sys::writeAll(copy.get(), text) < text.size()) return false;
  }
  if (got < 0 || sys::fsync(copy.get()) != 0) return false;
  return sys::renameat(folder, partial.c_str(), folder, to) == 0 && sys::unlink(from) == 0;
}

bool moveInto(int folder, const char* from, const char* to) {
  if (sys::renameat(AT_FDCWD, from, folder, to) == 0) {
    // Whoever could read the queue has no business with what is kept of it.
    static_cast<void>(sys::chmodNoFollow(folder, to, 0600));
    return true;
  }
  return errno == EXDEV && copyInto(folder, from, to);
}

/// Deletes all but the newest. The names sort by time.
void keepNewest(int folder) {
  std::unique_ptr<DIR, int (*)(DIR*)> entries(::fdopendir(::dup(folder)), ::closedir);
  if (!entries) return;
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(entries.get())) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  for (std::size_t i = 0; i + kKept < names.size(); ++i) static_cast<void>(sys::unlinkat(folder, names[i].c_str(), 0));
}

}  // namespace

int keepAside(const char* path, const char* why) {
  const FailScope scope("keep_aside");
  const std::string folderPath = adminFile("task_queue_lost");
  const std::string stamp = stampNow();
  const Descriptor folder = openPrivateFolder(folderPath.c_str(), 0700);
  if (!folder || !moveInto(folder.get(), path, stamp.c_str())) {
    const std::string reason = std::strerror(errno);
    const std::string beside = joined(path, ".", stamp);
    if (sys::rename(path, beside.c_str()) != 0) return 0;
    errorLog("%s: its lines are kept aside as %s (%s/%s: %s): %s", path, beside.c_str(), folderPath.c_str(),
             stamp.c_str(), reason.c_str(), why);
    return 1;
  }
  errorLog("%s: its lines are kept aside as %s/%s: %s", path, folderPath.c_str(), stamp.c_str(), why);
  keepNewest(folder.get());
  return 1;
}

}  // namespace zvtaskq
