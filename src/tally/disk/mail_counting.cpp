#include "tally/disk/mail_counting.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>

#include "core/config/config.h"
#include "core/panel/hook_script.h"
#include "core/panel/overrides.h"
#include "core/read/line_reader.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/sys.h"

namespace zvtaskq {

namespace {

constexpr const char* kScript = "rotate_email_usage.sh";
constexpr const char* kMounts = "/proc/self/mounts";
constexpr std::size_t kMostMounts = 64UL << 20;
constexpr int kByPartitions = 0, kOnTop = 1, kNotOnTop = 2;

std::string_view nextWord(std::string_view& text) {
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(word.size() + 1, text.size()));
  return word;
}

/// A device, a folder of another machine, or a file system that goes by a name of its own.
bool holdsFiles(std::string_view source, std::string_view type) {
  return source.starts_with("/dev/") || source.find(":/") != std::string_view::npos || type == "zfs";
}

/// Empty, with an error-log line, when not all of it could be read: half a table has other partitions than the disk.
std::string readMounts() {
  std::string table;
  const FailScope scope("mounts");
  const Descriptor mounts(sys::open(kMounts, O_RDONLY));
  if (mounts && sys::readAll(mounts.get(), table, kMostMounts)) return table;
  errorLog("Unable to read %s: %s", kMounts, std::strerror(errno));
  return {};
}

}  // namespace

Partitions partitionsIn(std::string_view table) {
  std::set<std::string_view> sources;
  Partitions found;
  for (std::string_view line; nextLine(table, line);) {
    const std::string_view source = nextWord(line), folder = nextWord(line), type = nextWord(line);
    if (!holdsFiles(source, type)) continue;
    sources.insert(source);
    if (folder == "/var") found.hasVar = true;
  }
  found.count = static_cast<int>(sources.size());
  return found;
}

int countEmailFor(int mode, const char* quotaPartition, const Partitions& partitions) {
  if (mode == kOnTop) return 1;
  if (mode == kNotOnTop) return 0;
  if (mode != kByPartitions) errorLog("count is %d. Should either be one of 0,1,2", mode);
  if (partitions.count <= 1) return 0;
  if (text_detail::part(quotaPartition) == "/") return partitions.hasVar ? 1 : 0;
  return 1;
}

int countEmail(const Config* conf) {
  const int mode = conf->count_email_usage;
  const bool decided = mode == kOnTop || mode == kNotOnTop;
  const std::string table = decided ? std::string() : readMounts();
  return countEmailFor(mode, conf->quota_partition, partitionsIn(table));
}

void rotate_email_usage(const Config* conf) {
  const std::string script = scriptPath(*conf, kScript);
  const std::string file(text_detail::part(conf->getFilename()));
  const HookAnswer answer =
      executeIfExists(script.c_str(), {{"serverpath", conf->serverpath.orEmpty()}, {"config", file}});
  if (answer.failed()) errorLog("error executing %s : %s", script.c_str(), answer.error.c_str());
}

}  // namespace zvtaskq
