#include <charconv>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/child.h"
#include "core/sys/privileges.h"
#include "core/text/split.h"
#include "core/text/text.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/issues.h"

namespace zvtaskq {

namespace {

constexpr Text Settings::*kFolders[] = {&Settings::admindir,     &Settings::userdata, &Settings::logdir,
                                        &Settings::emailvirtual, &Settings::tmpdir,   &Settings::apachelogdir,
                                        &Settings::nginxlogdir};
constexpr const char* kFurther[] = {"/", "/home", "/var"};

constexpr int kAnswerTime = 10;

/// A file system as the system's own tool tells of it: its number, then blocks and files.
struct FileSystem {
  std::string number;
  unsigned long long blocks = 0, freeBlocks = 0, availableBlocks = 0;
  unsigned long long files = 0, freeFiles = 0;
};

/// Asked by a process that may be left waiting: one that is mounted from a server that is gone never answers.
ChildResult ask(const char* path) {
  ChildPlan plan = ChildPlan::program("/usr/bin/stat", {"--file-system", "--format", "%i %b %f %a %c %d", "--", path});
  plan.identity = kRootIds;
  plan.workingDirectory.assign(1, '/');
  plan.errors = ChildPlan::Stream::discard;
  plan.timeLimit = kAnswerTime;
  plan.atLimit = ChildPlan::AtLimit::leave;
  const AsRoot root;
  return runChild(plan);
}

bool readFileSystem(const std::string& line, FileSystem& out) {
  const std::vector<std::string_view> words = wordsIn(trimmed(line), ' ');
  unsigned long long* const numbers[] = {&out.blocks, &out.freeBlocks, &out.availableBlocks, &out.files,
                                         &out.freeFiles};
  if (words.size() != std::size(numbers) + 1) return false;
  out.number = words[0];
  for (std::size_t i = 0; i < std::size(numbers); ++i) {
    const std::string_view word = words[i + 1];
    if (std::from_chars(word.data(), word.data() + word.size(), *numbers[i]).ec != std::errc()) return false;
  }
  return true;
}

/// The used share in percent, of what users other than root may use; 0 for a file system that does not count it.
int percentUsed(unsigned long long all, unsigned long long free, unsigned long long available) {
  const unsigned long long used = all - free;
  if (all == 0 || used + available == 0) return 0;
  return static_cast<int>(100.0 * static_cast<double>(used) / static_cast<double>(used + available));
}

void checkOne(const char* path, std::set<std::string>& seen, Issues& issues) {
  if (path == nullptr || *path == '\0') return;
  const ChildResult child = ask(path);
  FileSystem found;
  if (child.timedOut) {
    issues.add(Concern::space, joined("the file system of ", path, " does not answer"),
               "look where it is mounted from, and mount it anew or not at all");
    return;
  }
  if (child.status != 0 || !readFileSystem(child.output, found) || !seen.insert(found.number).second) return;
  const int blocks = percentUsed(found.blocks, found.freeBlocks, found.availableBlocks);
  const int files = percentUsed(found.files, found.freeFiles, found.freeFiles);
  const int threshold = sys_conf->partition_usage_threshold;
  if (blocks >= threshold) {
    issues.add(Concern::space, joined("the file system of ", path, " is ", std::to_string(blocks), "% full"),
               "delete or move what is not needed there, such as old archives and logs, or make it larger");
  }
  if (files >= threshold) {
    issues.add(
        Concern::space, joined("the file system of ", path, " has used ", std::to_string(files), "% of its files"),
        "find the folder with very many small files (du --inodes), such as sessions or mail queues, and clear it");
  }
}

}  // namespace

void checkSpace(Issues& issues) {
  std::set<std::string> seen;
  for (const auto folder : kFolders) checkOne(sys_conf->*folder, seen, issues);
  for (const char* path : kFurther) checkOne(path, seen, issues);
}

}  // namespace zvtaskq
