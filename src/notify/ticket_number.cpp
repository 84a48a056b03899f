#include "notify/ticket_number.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/config/config.h"
#include "core/files/lock_file.h"
#include "core/files/safe_file.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/config_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/ticket_folder.h"

namespace zvtaskq {

namespace {

/// How many numbers that somebody else is faster with are tried.
constexpr int kTries = 1000;
constexpr std::size_t kLongestCounter = 64;

/// The number in the counter file, -1 with its error-log line when there is none.
int readCounter(const std::string& path) {
  const Descriptor file = openRegularFile(path.c_str());
  if (!file) {
    errorLog("Can't open file %s", path.c_str());
    return -1;
  }
  char text[kLongestCounter] = "";
  const ssize_t got = sys::read(file.get(), text, sizeof text - 1);
  int number = -1;
  if (got > 0 && std::sscanf(text, "%d", &number) == 1 && number > 0 && number < INT_MAX) return number;
  errorLog("Ticket: Error reading ticket number from %s", path.c_str());
  return -1;
}

/// The new number stands in the file as a whole or not at all: a full disk does not empty it.
int writeCounter(const std::string& path, int number) {
  SafeFile file(path.c_str());
  if (file.open()) {
    file.write(joined(std::to_string(number), "\n"));
    if (file.finish() && file.putInPlace()) return 1;
  }
  const int error = errno;
  static_cast<void>(sys::unlink(file.temporaryPath()));
  errorLog("Unable to write %s: %s", path.c_str(), std::strerror(error));
  return 0;
}

/// The highest number that the administrators have been told of.
int highestListed() {
  ConfigFile list(adminFile("tickets.list").c_str());
  list.setUser(nullptr);
  if (!list.readFile() || list.size() == 0) return 0;
  return std::atoi(list.getNameAt(list.size() - 1));
}

/// The number of the counter; -1 when it cannot be had or is somebody else's already. A folder that cannot be made is
/// told of by whoever writes the ticket.
int numberOfCounter(const std::string& path) {
  const int number = readCounter(path);
  if (number < 0 || !writeCounter(path, number + 1)) return -1;
  if (claimTicketFolder(number) != Claim::taken) return number;
  errorLog("Ticket: the number %d of %s is that of another ticket", number, path.c_str());
  return -1;
}

}  // namespace

int last_restort_get_number() {
  const int first = std::max({0, highestTicket(), highestListed()});
  for (int i = 1; i <= kTries && first <= INT_MAX - kTries; ++i) {
    if (claimTicketFolder(first + i) != Claim::taken) return first + i;
  }
  return -1;
}

int takeTicketNumber() {
  const FailScope scope("ticket");
  const AsUser panel(kPanelUser);
  if (!panel.taken() && realIds().user == 0) return -1;
  const std::string path = adminFile(kTicketCounter);
  FileLock lock;
  const bool locked = lock.take(path.c_str(), kLockMaximumAge, "Ticket::getTicketNumber", nullptr) != 0;
  if (!locked) errorLog("Can't get lock on %s", path.c_str());
  int number = locked ? numberOfCounter(path) : -1;
  if (number > 0) return number;
  number = last_restort_get_number();
  // A counter that had to be passed over would have to be passed over every time.
  if (locked && number > 0) static_cast<void>(writeCounter(path, number + 1));
  return number;
}

}  // namespace zvtaskq
