#include "services/ftp/actions.h"

#include "core/sys/log.h"

namespace zvtaskq {

namespace {

int convertToUnifiedFile(const Task& task) {
  const char* what = task.isOn("simulate") ? "Simulating conversion to unified ftp password file"
                                           : "Converting to unified ftp password file";
  systemLog("%s", what);
  debug(10, "%s.  Only accounts with owned IPs are used.", what);
  return 1;
}

constexpr ActionRow kRows[] = {
    {"convert", "value", "unifiedftp", convertToUnifiedFile, "converts to one FTP password file"},
};

}  // namespace

ActionRows ftpActions() {
  return kRows;
}

}  // namespace zvtaskq
