#include "notify/message_list.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/config_file.h"
#include "core/lock_file.h"
#include "core/log.h"
#include "core/paths.h"
#include "core/privileges.h"

namespace zvtaskq {

namespace {

constexpr unsigned kListMode = 0600;

/// Reads the list that was just locked. 0 with the reason in the record's result.
int readList(ConfigFile& list) {
  if (isLink(list.getFilename())) return fail(list.result, std::strerror(ELOOP));
  return list.readFile();
}

}  // namespace

int announceTicket(const char* path, int ticket, const char* type, const char* recipient, Text& result) {
  const AsUser panel(kPanelUser);
  ConfigFile list(path);
  list.setUser(nullptr);
  list.useLock = false;
  list.fileMode = kListMode;
  FileLock lock;
  char reason[kLockReasonSize] = "";
  const bool locked = lock.take(path, kLockMaximumAge, "Ticket::deliverMessage", reason) != 0;
  if (!locked || !readList(list)) {
    errorLog("Ticket::deliverMessage::Can't read %s: %s", path, locked ? list.result.orEmpty() : reason);
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

}  // namespace zvtaskq
