#include "account/model/suspension_notes.h"

#include <cerrno>
#include <string_view>

#include "core/panel/panel_paths.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"

namespace zvtaskq {

namespace {

constexpr std::string_view kOver = "over";
constexpr std::string_view kCrontab = "crontab";
constexpr std::string_view kDatabases = "databases";
constexpr std::string_view kDatabaseUser = "database ";
constexpr std::string_view kBlocked = "blocked ";
constexpr std::string_view kExpires = "expires ";
constexpr std::string_view kNever = "never";

void take(SuspensionNotes& notes, std::string_view line) {
  if (line == kOver) notes.isOver = true;
  if (line == kCrontab) notes.hadCrontab = true;
  if (line.starts_with(kBlocked)) notes.blocked.emplace(line.substr(kBlocked.size()));
  const bool isDatabaseUser = line.starts_with(kDatabaseUser);
  if ((isDatabaseUser || line == kDatabases) && !notes.lockedDatabaseUsers) notes.lockedDatabaseUsers.emplace();
  if (isDatabaseUser) notes.lockedDatabaseUsers->emplace(line.substr(kDatabaseUser.size()));
  if (!line.starts_with(kExpires)) return;
  const std::string_view day = line.substr(kExpires.size());
  notes.expires = day == kNever ? std::string() : std::string(day);
}

}  // namespace

int SuspensionNotes::read(Text& result) {
  *this = SuspensionNotes(file);
  const AsUser panel(kPanelUser);
  struct stat what {};
  if (sys::lstat(file.c_str(), what) != 0 && errno == ENOENT) return 1;
  PanelList list(file);
  if (!list.readFile()) return fail(result, list.result);
  exists = true;
  if (list.existElement(std::string(kDatabases).c_str())) lockedDatabaseUsers.emplace();
  for (int i = 0; i < list.size(); ++i) take(*this, list.getElementAt(i));
  return 1;
}

int SuspensionNotes::write(Text& result) const {
  PanelList list(file);
  for (const std::string& name : blocked) list.addElement(joined(kBlocked, name).c_str());
  if (expires) list.addElement(joined(kExpires, expires->empty() ? kNever : std::string_view(*expires)).c_str());
  if (hadCrontab) list.addElement(kCrontab);
  if (lockedDatabaseUsers) {
    list.addElement(kDatabases);
    for (const std::string& user : *lockedDatabaseUsers) list.addElement(joined(kDatabaseUser, user).c_str());
  }
  if (isOver) list.addElement(kOver);
  list.changed = true;
  return list.writeFile() ? 1 : fail(result, list.result);
}

int SuspensionNotes::remove(Text& result) {
  const AsUser panel(kPanelUser);
  if (sys::unlink(file.c_str()) != 0 && errno != ENOENT) return fail(result, "Unable to remove ", file);
  *this = SuspensionNotes(file);
  return 1;
}

std::string suspensionFile(const char* account) {
  return accountFile(account, "suspended.list");
}

}  // namespace zvtaskq
