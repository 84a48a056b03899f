#include "notify/message_list.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/files/paths.h"
#include "core/record/config_file.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr unsigned kListMode = 0600;

/// Reads the list. 0 with the reason in the record's result.
int readList(ConfigFile& list) {
  {
    const AsUser panel(kPanelUser);
    if (isLink(list.getFilename())) return fail(list.result, std::strerror(ELOOP));
  }
  return list.readFile();
}

bool isMissing(const char* path) {
  const AsUser panel(kPanelUser);
  struct stat what {};
  return sys::lstat(path, what) != 0 && errno == ENOENT;
}

}  // namespace

int announceTicket(const char* path, int ticket, const char* type, const char* recipient, Text& result) {
  PanelRecord list(path);
  list.fileMode = kListMode;
  list.callerLocation = "Ticket::deliverMessage";
  const RecordLock lock(list);
  if (!readList(list)) {
    errorLog("Ticket::deliverMessage::Can't read %s: %s", path, list.result.orEmpty());
    return fail(result, "Can't read ", recipient, "'s tickets file to add ticket");
  }
  ConfigFile entry(nullptr);
  entry.keepUnsorted = true;
  entry.setParam("type", type);
  entry.setParam("new", "yes");
  const Text encoded = entry.createPostString(1);
  char number[16];
  std::snprintf(number, sizeof number, "%.9d", ticket);
  list.setParam(number, encoded);
  if (list.writeFile()) return 1;
  errorLog("Tickets::deliverMessage::Unable to write %s", path);
  return fail(result, "Unable to write ", recipient, "'s tickets file to add ticket");
}

int readMessageList(const char* path, ConfigFile& list) {
  list.setFilename(path);
  list.belongsTo(kPanelUser);
  return isMissing(path) || readList(list);
}

int removeFromList(const char* path, const std::vector<std::string>& names) {
  PanelRecord list(path);
  list.fileMode = kListMode;
  const RecordLock lock(list);
  if (readList(list)) {
    // Emptied first and moved up once: a list may be long.
    std::vector<long long> places;
    for (const std::string& name : names) places.push_back(list.getIndex(name.c_str()));
    for (const long long place : places) {
      if (place >= 0) list.deleteParamAt(place);
    }
    list.shift_down_and_count();
    if (list.writeFile()) return 1;
  }
  errorLog("%s: %s", path, list.result.orEmpty());
  return 0;
}

}  // namespace zvtaskq
