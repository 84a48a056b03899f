#include "account/model/user_folder.h"

#include <cerrno>
#include <cstring>

#include "account/model/system_accounts.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/text.h"
#include "core/tree/guarded_folder.h"

namespace zvtaskq {

namespace {

constexpr int kOneStep = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK;
constexpr mode_t kOnTheWay = 0711;

Descriptor refuseStep(int parent, const char* step, const std::string& path) {
  const int error = errno;
  struct stat what {};
  if (sys::lstatAt(parent, step, what) == 0 && S_ISLNK(what.st_mode)) {
    refusalLog(10, "Tally::openUserFolder(%s): is hard or symbolic link", path.c_str());
  } else {
    errorLog("Tally::openUserFolder(%s): %s", path.c_str(), std::strerror(error));
  }
  return {};
}

Descriptor takeStep(int parent, const char* step, const std::string& path, mode_t mode) {
  Descriptor next(sys::openat(parent, step, kOneStep));
  if (next) return next;
  if (errno != ENOENT || sys::mkdirat(parent, step, mode) != 0) return refuseStep(parent, step, path);
  next = Descriptor(sys::openat(parent, step, kOneStep));
  // What the umask took away.
  if (!next || sys::fchmod(next.get(), mode) != 0) return refuseStep(parent, step, path);
  errorLog("Path %s was missing. Re-added it. NOTE: other folders are probably missing.", path.c_str());
  return next;
}

}  // namespace

OpenedFolder openHome(const char* user) {
  const SystemAccount* account = systemAccounts().find(user);
  if (account == nullptr) {
    errorLog("Tally::openHome: there is no account %s", user == nullptr ? "" : user);
    return {};
  }
  const uid_t owner = account->ids.user;
  const std::string path = account->home;
  const AsRoot root;
  OpenedFolder home{openGuardedFolder(path.c_str()), path};
  struct stat what {};
  if (home && sys::fstat(home.folder.get(), what) == 0 && what.st_uid == owner) return home;
  errorLog("Tally::openHome: the home of %s, %s, cannot be used: %s", user, home.path.c_str(),
           std::strerror(home ? EPERM : errno));
  return {};
}

OpenedFolder openUserFolder(const char* user, OpenedFolder base, const std::vector<std::string>& steps, mode_t mode) {
  if (!base) return {};
  const AsUser account(user);
  if (!account.taken()) return {};
  for (std::size_t i = 0; i < steps.size() && base; ++i) {
    base.path = joined(base.path, "/", steps[i]);
    base.folder = takeStep(base.folder.get(), steps[i].c_str(), base.path, i + 1 == steps.size() ? mode : kOnTheWay);
  }
  return base;
}

}  // namespace zvtaskq
