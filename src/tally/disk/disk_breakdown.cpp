#include "tally/disk/disk_breakdown.h"

#include "core/panel/panel_paths.h"
#include "core/record/config_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"

namespace zvtaskq {

DiskBreakdown::DiskBreakdown(const char* account) : items_(accountFile(account, "du_breakdown.list").c_str()) {
  items_.keepOrder = true;
  // Who writes there holds the account.
  items_.useLock = false;
  items_.belongsTo(kPanelUser);
}

void DiskBreakdown::du_detail(long long size, const char* descriptor, bool counted) {
  ConfigFile item(nullptr);
  item.setParam("size", size);
  item.setParam("descriptor", descriptor);
  item.setParam("counted", counted ? "yes" : "no");
  const Text line = item.createPostString(1);
  items_.addElement(line.get());
}

int DiskBreakdown::write() {
  struct stat what {};
  if (items_.size() == 0 && sys::lstat(items_.getFilename(), what) != 0) return 1;
  if (items_.writeFile()) return 1;
  errorLog("Error writing %s: %s", items_.getFilename(), items_.result.orEmpty());
  return 0;
}

}  // namespace zvtaskq
