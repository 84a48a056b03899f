#include "notify/ticket_folder.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <utility>
#include <vector>

#include "core/config/config.h"
#include "core/files/private_folder.h"
#include "core/panel/run_state.h"
#include "core/tree/folder_reader.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr int kFolderSize = 1000;
constexpr mode_t kFolderMode = 0700;

std::string threeDigits(int number) {
  char text[16];
  std::snprintf(text, sizeof text, "%.3d", number);
  return text;
}

std::string middleFolder(int number) {
  return joined(sys_conf->ticketsdir, "/", threeDigits(number / kFolderSize));
}

/// Calls `take` with the number that each name in the folder begins with. 0 with errno.
template <class Take>
int eachNumber(int folder, Take take) {
  FolderReader names(folder);
  if (!names) return 0;
  while (const dirent* entry = names.next()) {
    const std::string_view name = entry->d_name;
    int number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc() && number >= 0 && (end == name.data() + name.size() || *end == '.')) take(number);
  }
  return 1;
}

}  // namespace

std::string ticketFolder(int number) {
  return joined(middleFolder(number), "/", threeDigits(number));
}

std::string messageFile(int ticket, int message, const char* ending) {
  return joined(ticketFolder(ticket), "/", threeDigits(message), ".", ending);
}

Claim claimTicketFolder(int number) {
  const Descriptor middle = openPrivateFolder(middleFolder(number).c_str(), kFolderMode);
  if (!middle) return Claim::failed;
  if (sys::mkdirat(middle.get(), threeDigits(number).c_str(), kFolderMode) == 0) return Claim::made;
  return errno == EEXIST ? Claim::taken : Claim::failed;
}

Descriptor openTicketFolder(int number) {
  const Descriptor middle = openPrivateFolder(middleFolder(number).c_str(), kFolderMode);
  return middle ? openPrivateFolder(ticketFolder(number).c_str(), kFolderMode) : Descriptor();
}

int highestTicket() {
  const Descriptor top = openFolder(sys_conf->ticketsdir);
  std::vector<int> thousands;
  if (!top || !eachNumber(top.get(), [&](int number) { thousands.push_back(number); })) return -1;
  std::sort(thousands.rbegin(), thousands.rend());
  for (const int thousand : thousands) {
    int highest = 0;
    const Descriptor folder = openBeneath(top.get(), threeDigits(thousand).c_str(), O_RDONLY | O_DIRECTORY);
    if (!folder) continue;
    if (!eachNumber(folder.get(), [&](int number) { highest = std::max(highest, number); })) return -1;
    if (highest > 0) return highest;
  }
  return 0;
}

int nextMessage(int folder) {
  int highest = 0;
  static_cast<void>(eachNumber(folder, [&](int number) { highest = std::max(highest, number); }));
  return highest + 1;
}

int listTickets(std::vector<int>& numbers) {
  const Descriptor top = openFolder(sys_conf->ticketsdir);
  std::vector<int> thousands;
  if (!top || !eachNumber(top.get(), [&](int number) { thousands.push_back(number); })) return 0;
  for (const int thousand : thousands) {
    const Descriptor folder = openBeneath(top.get(), threeDigits(thousand).c_str(), O_RDONLY | O_DIRECTORY);
    if (!folder) continue;
    static_cast<void>(eachNumber(folder.get(), [&](int number) {
      if (number / kFolderSize == thousand) numbers.push_back(number);
    }));
  }
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return 1;
}

StoredTicket lookAtTicket(int number) {
  StoredTicket ticket;
  const Descriptor top = openFolder(sys_conf->ticketsdir);
  const std::string path = joined(threeDigits(number / kFolderSize), "/", threeDigits(number));
  struct stat what {};
  if (top) ticket.folder = openBeneath(top.get(), path.c_str(), O_RDONLY | O_DIRECTORY);
  if (!ticket.folder || sys::fstat(ticket.folder.get(), what) != 0) return {};
  ticket.last = what.st_mtim.tv_sec;
  FolderReader entries(ticket.folder.get());
  std::vector<std::pair<long long, std::string>> files;
  while (const dirent* entry = entries ? entries.next() : nullptr) {
    if (sys::lstatAt(ticket.folder.get(), entry->d_name, what) != 0) continue;
    files.emplace_back(what.st_mtim.tv_sec, entry->d_name);
  }
  std::sort(files.begin(), files.end());
  if (!files.empty()) ticket.last = files.back().first;
  for (auto& [time, name] : files) ticket.names.push_back(std::move(name));
  return ticket;
}

int removeTicket(int number, const StoredTicket& ticket) {
  for (const std::string& name : ticket.names) {
    if (sys::unlinkat(ticket.folder.get(), name.c_str(), 0) != 0 && errno != ENOENT) return 0;
  }
  const Descriptor middle = openFolder(middleFolder(number).c_str());
  return middle && sys::unlinkat(middle.get(), threeDigits(number).c_str(), AT_REMOVEDIR) == 0 ? 1 : 0;
}

}  // namespace zvtaskq
