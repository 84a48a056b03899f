#include "notify/old_messages.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/sys/fail_point.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "notify/message_list.h"
#include "notify/ticket_folder.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kMessage = "message";
constexpr long long kDay = 86400;
constexpr int kTimeForFolders = 60;
/// A message gets no answer, so it is as old as its number: behind that many young ones all are young.
constexpr int kYoungInARow = 3;

long long daysOf(std::string_view type) {
  return std::max(type == kMessage ? sys_conf->delete_messages_days : sys_conf->delete_tickets_days, 0);
}

/// What was touched last at `last` is past its time. Nothing that comes from the future is.
bool isOld(long long last, long long days) {
  return days > 0 && std::time(nullptr) - last > days * kDay;
}

/// The ticket's number in a list; -1 for a name that is none.
int numberOf(const char* name) {
  const std::string_view text = name == nullptr ? "" : name;
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : -1;
}

/// The type of a ticket by its entry in a list.
std::string typeOf(const char* entry) {
  ConfigFile values(nullptr);
  values.fillFromPost(entry);
  return values.getOrEmpty("type");
}

// --- Lists -----------------------------------------------------------------------------------------------------

int tell(const ConfigFile& list) {
  errorLog("%s: %s", list.getFilename(), list.result.orEmpty());
  return 0;
}

/// The names of a list whose tickets are past their time. Works as the panel's user.
std::vector<std::string> oldIn(const ConfigFile& list) {
  const AsUser panel(kPanelUser);
  std::vector<std::string> old;
  int young = 0;
  for (long long i = 0; i < list.size(); ++i) {
    const int number = numberOf(list.getNameAt(i));
    const std::string type = typeOf(list.getValueAt(i));
    const long long days = daysOf(type);
    const bool isMessage = type == kMessage;
    if (number < 0 || days == 0 || (isMessage && young >= kYoungInARow)) continue;
    const StoredTicket ticket = lookAtTicket(number);
    if (!ticket.folder) continue;
    const bool isPast = isOld(ticket.last, days);
    if (isPast) old.emplace_back(list.getNameAt(i));
    if (isMessage) young = isPast ? 0 : young + 1;
  }
  return old;
}

/// The list's lock is held for the change alone: looking into the folders takes its time.
int cleanList(const std::string& path) {
  ConfigFile list(nullptr);
  list.useLock = false;
  if (!readMessageList(path.c_str(), list)) return tell(list);
  const std::vector<std::string> old = oldIn(list);
  return old.empty() ? 1 : removeFromList(path.c_str(), old);
}

void addNamed(const std::string& path, std::vector<int>& named) {
  ConfigFile list(nullptr);
  list.useLock = false;
  // What a damaged list names is as old as what it is asked for: it would not keep the folder.
  if (!readMessageList(path.c_str(), list)) static_cast<void>(tell(list));
  for (long long i = 0; i < list.size(); ++i) named.push_back(numberOf(list.getNameAt(i)));
}

/// The numbers that stand in anybody's list, sorted.
int allNamed(std::vector<int>& named) {
  ListFile accounts(nullptr);
  if (!listAccounts(accounts)) {
    errorLog("Unable to read %s", sys_conf->userdata.orEmpty());
    return 0;
  }
  addNamed(adminFile("tickets.list"), named);
  for (int i = 0; i < accounts.size(); ++i) {
    addNamed(accountFile(accounts.getElementAt(i), "tickets.list"), named);
    atSafePoint();
  }
  std::sort(named.begin(), named.end());
  return 1;
}

// --- Folders ---------------------------------------------------------------------------------------------------

/// The type that the ticket itself says it is of; a message when it was never finished.
std::string storedType(int number) {
  ConfigFile header(messageFile(number, 1, "conf").c_str());
  header.setUser(nullptr);
  header.useLock = false;
  const char* type = header.readFile() ? header.getValue("type") : nullptr;
  return type == nullptr ? std::string(kMessage) : type;
}

int removeIfOld(int number) {
  const StoredTicket ticket = lookAtTicket(number);
  if (!ticket.folder || !isOld(ticket.last, daysOf(storedType(number)))) return 1;
  if (removeTicket(number, ticket)) return 1;
  errorLog("Unable to remove %s: %s", ticketFolder(number).c_str(), std::strerror(errno));
  return 0;
}

int removeUnnamed() {
  std::vector<int> named;
  std::vector<int> stored;
  if (!allNamed(named)) return 0;
  const AsUser panel(kPanelUser);
  if (!listTickets(stored)) {
    errorLog("Unable to read %s: %s", sys_conf->ticketsdir.orEmpty(), std::strerror(errno));
    return 0;
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(kTimeForFolders);
  int outcome = 1;
  for (const int number : stored) {
    if (std::chrono::steady_clock::now() > end) break;
    if (!std::binary_search(named.begin(), named.end(), number)) outcome &= removeIfOld(number);
    atSafePoint();
  }
  return outcome;
}

}  // namespace

int removeOldMessages(const char* account) {
  if (isDemo() || (daysOf(kMessage) == 0 && daysOf("ticket") == 0)) return 1;
  const FailScope scope("old_messages");
  if (std::string_view(account) != kPanelUser) return cleanList(accountFile(account, "tickets.list"));
  const int cleaned = cleanList(adminFile("tickets.list"));
  return removeUnnamed() && cleaned;
}

}  // namespace zvtaskq
