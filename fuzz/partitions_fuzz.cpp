// Whatever the disk-free table says: every mount point taken is an absolute path with a share that is a whole number.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "core/panel/partitions.h"
#include "core/record/config_file.h"
#include "core/record/list_file.h"
#include "tally/checks/partition_check.h"

using namespace zvtaskq;

namespace {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view table(reinterpret_cast<const char*>(data), size);
  ConfigFile usage(nullptr);
  const int taken = parsePartitionUsage(table, usage);
  require(taken >= usage.size(), "more mount points than lines");
  ListFile watched(nullptr);
  long long lines = 0;
  for (long long i = 0; i < usage.size(); ++i) {
    require(usage.getNameAt(i)[0] == '/', "mount point");
    ConfigFile columns(nullptr);
    columns.fillFromPost(usage.getValueAt(i));
    int used = -1;
    require(columns.getValue("Use", &used) && used >= 0, "Use");
    lines += used >= 50 ? 1 : 0;
    watched.addElement(usage.getNameAt(i));
  }
  const std::string full = fullPartitions(watched, usage, 50);
  // A comment is no mount point, but none of these is one: they all begin with a slash.
  require(watched.size() == usage.size(), "watched");
  long long found = 0;
  for (const char c : full) found += c == '\n' ? 1 : 0;
  require(found == lines, "full partitions");
  return 0;
}
