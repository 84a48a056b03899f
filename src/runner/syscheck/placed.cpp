#include "runner/syscheck/placed.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "core/process/child.h"
#include "core/sys/privileges.h"
#include "core/sys/sys.h"
#include "core/text/text.h"

namespace zvtaskq {

namespace {

bool isOwners(const struct stat& what, const char* owner) {
  const bool rootMay = std::string_view(owner) != "nobody";
  return what.st_uid == getUID(owner) || (rootMay && what.st_uid == kRootIds.user);
}

/// 0 with errno.
int look(const Placed& placed, struct stat& what) {
  const AsRoot root;
  if (sys::lstat(placed.path.c_str(), what) != 0) return 0;
  if (!S_ISLNK(what.st_mode) || !isOwners(what, placed.owner)) return 1;
  return ::stat(placed.path.c_str(), &what) == 0 ? 1 : 0;
}

std::string makingOf(const Placed& placed) {
  const bool isFolder = S_ISDIR(placed.mode);
  return joined("make it: install ", isFolder ? "-d " : "", "-o ", placed.owner, " -m ", octal(placed.mode),
                isFolder ? " " : " /dev/null ", placed.path);
}

}  // namespace

std::string octal(mode_t mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%03o", static_cast<unsigned>(mode & 07777));
  return text;
}

void checkPlaced(const Placed& placed, Concern kind, Issues& issues) {
  struct stat what {};
  if (!look(placed, what)) {
    if (errno == ENOENT && placed.mayBeMissing) return;
    const bool isMissing = errno == ENOENT;
    issues.add(kind, joined(placed.path, isMissing ? " is missing" : " cannot be looked at"),
               isMissing ? makingOf(placed) : std::string(std::strerror(errno)), placed.account);
    return;
  }
  const bool isFolder = S_ISDIR(placed.mode);
  if (isFolder != S_ISDIR(what.st_mode) || (!isFolder && !S_ISREG(what.st_mode))) {
    issues.add(kind, joined(placed.path, " is no ", isFolder ? "folder" : "regular file"),
               "find out who put it there, and take it away", placed.account);
    return;
  }
  const bool isOwned = isOwners(what, placed.owner);
  if (isOwned && (what.st_mode & placed.forbidden) == 0) return;
  const std::string found = getUIDname(what.st_uid);
  issues.add(kind,
             joined(placed.path, " belongs to ", found.empty() ? std::to_string(what.st_uid) : found, " with mode ",
                    octal(what.st_mode)),
             joined("call chown ", placed.owner, " ", placed.path, " && chmod ", octal(placed.mode), " ", placed.path),
             placed.account);
}

}  // namespace zvtaskq
