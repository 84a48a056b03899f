#include "core/panel/state_folder.h"

#include <cerrno>

#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/sys/random.h"

namespace zvtaskq {

namespace {

constexpr const char* kFolder = "state";
constexpr mode_t kMode = 0700;
constexpr int kSuffixLength = 12;
/// Somebody who plants one again and again may keep us from it, but not busy.
constexpr int kTries = 3;

bool isOurs(const struct stat& what, Ids owner) {
  return what.st_uid == owner.user || what.st_uid == 0;
}

Descriptor openOwn(int parent, const char* name, Ids owner) {
  if (sys::mkdirat(parent, name, kMode) != 0 && errno != EEXIST) return {};
  Descriptor folder(sys::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  struct stat what {};
  if (!folder || sys::fstat(folder.get(), what) != 0) return {};
  if (!isOurs(what, owner)) {
    errno = EPERM;
    return {};
  }
  const bool given = what.st_uid == owner.user && what.st_gid == owner.group;
  if (!given && sys::fchown(folder.get(), owner.user, owner.group) != 0) return {};
  if ((what.st_mode & 07777) != kMode && sys::fchmod(folder.get(), kMode) != 0) return {};
  return folder;
}

/// Moves away what somebody else planted at the name. False, with errno as it was, when there is nothing like that.
bool moveAway(int parent, const char* name, Ids owner) {
  const int error = errno;
  struct stat what {};
  const std::string elsewhere = joined(name, ".", getRandText(kSuffixLength));
  const bool moved = sys::lstatAt(parent, name, what) == 0 && !isOurs(what, owner) &&
                     sys::renameat(parent, name, parent, elsewhere.c_str()) == 0;
  errno = error;
  if (!moved) return false;
  securityLog("%s belonged to uid %u, and is not used: it is %s now", adminFile(name).c_str(), what.st_uid,
              elsewhere.c_str());
  return true;
}

}  // namespace

std::string stateFile(const std::string& name) {
  return adminFile(joined(kFolder, "/", name).c_str());
}

Descriptor openStateFolder(const char* name) {
  const AsRoot root;
  const Ids owner = idsOf(kPanelUser);
  if (owner.user == kUnknownId || owner.group == kUnknownId) {
    errno = EINVAL;
    return {};
  }
  const Descriptor admin(sys::open(sys_conf->admindir.orEmpty(), O_PATH | O_DIRECTORY));
  if (!admin) return {};
  Descriptor state;
  for (int i = 0; i < kTries && !state; ++i) {
    state = openOwn(admin.get(), kFolder, owner);
    if (!state && !moveAway(admin.get(), kFolder, owner)) return {};
  }
  return !state || name == nullptr ? std::move(state) : openOwn(state.get(), name, owner);
}

}  // namespace zvtaskq
