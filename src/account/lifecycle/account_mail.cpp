#include "account/lifecycle/account_mail.h"

#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/files/private_folder.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"
#include "core/tree/remove_tree.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

constexpr const char* kSpool = "/var/spool/mail";
constexpr const char* kNewLists[] = {"passwd", "aliases"};
constexpr mode_t kFolderMode = 02770;
constexpr mode_t kListMode = 0640;
/// Mail that takes longer to remove stays, and is told.
constexpr int kMostTime = 600;

bool hasMail() {
  return getUID(kMailUser) != kUnknownId && !sys_conf->emailvirtual.isEmpty();
}

bool isMissing(const std::string& path) {
  struct stat what {};
  return sys::lstat(path.c_str(), what) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

/// Removes a folder of the mail server's user, as him. Whatever stands in its place is his too.
int removeFolder(const std::string& path, Text& result) {
  if (isMissing(path)) return 1;
  const Removal removal = removeTree(path, {LLONG_MAX, kMostTime});
  if (removal.isDone()) return 1;
  return fail(result, "Unable to remove ", removal.why.empty() ? path : removal.why);
}

int removeFile(const std::string& path, Text& result) {
  if (sys::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR) return 1;
  return fail(result, "Unable to remove ", path, ": ", std::strerror(errno));
}

int removeSpool(const std::string& name, Text& result) {
  const AsRoot root;
  const Descriptor spool = openGuardedFolder(kSpool);
  if (!spool || sys::unlinkat(spool.get(), name.c_str(), 0) == 0 || errno == ENOENT) return 1;
  return fail(result, "Unable to remove ", kSpool, "/", name, ": ", std::strerror(errno));
}

}  // namespace

int makeMailDomain(const char* domain, Text& result) {
  if (!hasMail()) return 1;
  const std::string path = joined(sys_conf->emailvirtual, "/", domain);
  const AsUser mail(kMailUser);
  if (isMissing(std::string(sys_conf->emailvirtual.view()))) return 1;
  const Descriptor folder = openPrivateFolder(path.c_str(), kFolderMode);
  if (!folder) return fail(result, "Unable to make ", path, ": ", std::strerror(errno));
  for (const char* name : kNewLists) {
    const Descriptor list(sys::openat(folder.get(), name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kListMode));
    if ((list && sys::fchmod(list.get(), kListMode) == 0) || (!list && errno == EEXIST)) continue;
    return fail(result, "Unable to make ", path, "/", name, ": ", std::strerror(errno));
  }
  return 1;
}

int removeMailDomain(const char* domain, Text& result) {
  if (!hasMail()) return 1;
  const AsUser mail(kMailUser);
  int done = removeFolder(joined(sys_conf->emailvirtual, "/", domain), result);
  if (!sys_conf->emailspoolvirtual.isEmpty()) {
    done &= removeFolder(joined(sys_conf->emailspoolvirtual, "/", domain), result);
  }
  return done;
}

int removeMailOf(const AccountHolder& holder, Text& result) {
  int done = removeSpool(holder.name, result);
  if (!hasMail()) return done;
  const AsUser mail(kMailUser);
  done &= removeFile(joined(sys_conf->emailvirtual, "/limit_", holder.name), result);
  return done & removeFile(joined(sys_conf->emailvirtual, "/usage/", holder.name, ".bytes"), result);
}

int addDomainOwner(const char* domain, const char* account, Text& result) {
  if (!hasMail()) return 1;
  const std::string begin = joined(domain, ":");
  const auto drop = [&](std::string_view line, std::string&) {
    return line.starts_with(begin) ? LineFate::drop : LineFate::keep;
  };
  {
    const AsUser mail(kMailUser);
    if (isMissing(std::string(sys_conf->emailvirtual.view()))) return 1;
  }
  return editLines(domainOwnersFile(), idsOf(kMailUser), drop, joined(begin, " ", account, "\n"), result);
}

int removeDomainOwner(const char* account, Text& result) {
  if (!hasMail()) return 1;
  const auto drop = [&](std::string_view line, std::string&) {
    const std::size_t colon = line.find(':');
    const bool isHis = colon != std::string_view::npos && trimmed(line.substr(colon + 1)) == account;
    return isHis ? LineFate::drop : LineFate::keep;
  };
  return editLines(domainOwnersFile(), idsOf(kMailUser), drop, {}, result);
}

}  // namespace zvtaskq
