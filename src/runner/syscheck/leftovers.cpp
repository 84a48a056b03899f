#include <sys/file.h>

#include <cerrno>
#include <ctime>
#include <string>
#include <string_view>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/state_folder.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/dates.h"
#include "core/sys/privileges.h"
#include "core/sys/safe_point.h"
#include "core/tree/folder_reader.h"
#include "runner/syscheck/checks.h"
#include "runner/syscheck/issues.h"

namespace zvtaskq {

namespace {

/// Seconds after which nobody is still at work on it.
constexpr long long kAbandoned = 3600;
constexpr long long kClockSlack = 60;

/// What is left by the ending of its name.
struct Ending {
  std::string_view ending;
  const char* what;
  const char* remedy;
};
constexpr Ending kOfWrites[] = {
    {".temp", "was left by a write that was cut short", "the old file is whole; delete this one"},
    {".lock", "is a lock that nobody holds any more", "delete it when no program of the panel has run for that long"},
};
constexpr Ending kOfLostLines[] = {
    {"", "holds task lines that were never carried out", "queue again those that are still wanted, and delete it"},
};
constexpr Ending kOfCreations[] = {
    {"", "tells of an account that was not made to its end, and could not be taken back",
     "look into the error log for why, and create or delete the account in the panel"},
};
constexpr Ending kOfRewrites[] = {
    {".change", "is a change of a server's files that could not be finished",
     "look into the error log for why; the next run finishes it"},
};

class Leftovers {
 public:
  explicit Leftovers(Issues& issues) : issues_(issues), now_(std::time(nullptr)) {}

  /// Looks through one folder, not below it. What somebody else put there is not the panel's.
  template <std::size_t count>
  void look(const std::string& path, const Ending (&endings)[count], std::string_view account = {}) {
    const AsUser panel(kPanelUser);
    FolderReader folder(path.c_str());
    while (const dirent* entry = folder ? folder.next() : nullptr) {
      for (const Ending& one : endings) {
        if (std::string_view(entry->d_name).ends_with(one.ending) && isAbandoned(folder.descriptor(), entry->d_name)) {
          add(joined(path, "/", entry->d_name), one, account);
        }
      }
    }
  }

  void lookAt(const std::string& path, const Ending& what) {
    const AsUser panel(kPanelUser);
    if (isAbandoned(AT_FDCWD, path.c_str())) add(path, what);
  }

 private:
  bool isAbandoned(int folder, const char* name) const {
    struct stat what {};
    if (sys::lstatAt(folder, name, what) != 0 || !S_ISREG(what.st_mode) || !isPanels(what)) return false;
    return ageOf(what.st_mtime, now_, kClockSlack).seconds > kAbandoned && !isHeld(folder, name);
  }
  /// Whether somebody who lives holds it, however old it is.
  static bool isHeld(int folder, const char* name) {
    const Descriptor file(sys::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return file && sys::flockNow(file.get(), LOCK_SH) != 0 && errno == EWOULDBLOCK;
  }
  void add(const std::string& path, const Ending& what, std::string_view account = {}) {
    issues_.add(Concern::leftovers, joined(path, " ", what.what), what.remedy, account);
  }

  Issues& issues_;
  long long now_;
};

constexpr Ending kSwap{"", "is a change of addresses that could not be finished",
                       "look into the error log for why; the next ipswap line finishes it"};

}  // namespace

void checkLeftovers(Issues& issues) {
  Leftovers leftovers(issues);
  leftovers.look(joined(sys_conf->admindir), kOfWrites);
  leftovers.look(stateFile("task_queue_lost"), kOfLostLines);
  leftovers.look(stateFile("creations"), kOfCreations);
  leftovers.look(stateFile("rewrites"), kOfRewrites);
  leftovers.lookAt(stateFile("ip_swap"), kSwap);
  ListFile accounts(nullptr);
  // That they cannot be read is told with the accounts.
  if (!listAccounts(accounts)) return;
  for (int i = 0; i < accounts.size() && !issues.isFull(Concern::leftovers); ++i) {
    const char* account = accounts.getElementAt(i);
    leftovers.look(accountFile(account, nullptr), kOfWrites, account);
    leftovers.look(accountFile(account, "domains"), kOfWrites, account);
    atSafePoint();
  }
}

}  // namespace zvtaskq
