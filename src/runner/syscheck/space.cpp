#include <sys/statvfs.h>

#include <set>
#include <string>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/issues.h"

namespace zvtaskq {

namespace {

constexpr Text Settings::*kFolders[] = {&Settings::admindir,     &Settings::userdata, &Settings::logdir,
                                        &Settings::emailvirtual, &Settings::tmpdir,   &Settings::apachelogdir,
                                        &Settings::nginxlogdir};
constexpr const char* kFurther[] = {"/", "/home", "/var"};

/// The used share in percent, of what users other than root may use; 0 for a file system that does not count it.
int percentUsed(unsigned long all, unsigned long free, unsigned long available) {
  const unsigned long used = all - free;
  if (all == 0 || used + available == 0) return 0;
  return static_cast<int>(100.0 * static_cast<double>(used) / static_cast<double>(used + available));
}

void checkOne(const char* path, std::set<dev_t>& seen, Issues& issues) {
  const AsRoot root;
  struct stat what {};
  struct statvfs system {};
  if (path == nullptr || ::stat(path, &what) != 0 || !seen.insert(what.st_dev).second) return;
  if (::statvfs(path, &system) != 0) return;
  const int blocks = percentUsed(system.f_blocks, system.f_bfree, system.f_bavail);
  const int files = percentUsed(system.f_files, system.f_ffree, system.f_favail);
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
  std::set<dev_t> seen;
  for (const auto folder : kFolders) checkOne(sys_conf->*folder, seen, issues);
  for (const char* path : kFurther) checkOne(path, seen, issues);
}

}  // namespace zvtaskq
