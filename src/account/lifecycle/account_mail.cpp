#include "account/lifecycle/account_mail.h"

#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/private_folder.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/tree/guarded_folder.h"
#include "core/tree/remove_tree.h"
#include "mail/mail_files.h"
#include "mail/server_tables.h"

namespace zvtaskq {

namespace {

constexpr const char* kSpool = "/var/spool/mail";
constexpr const char* kNewLists[] = {"passwd", "aliases"};
constexpr mode_t kFolderMode = 02770;
constexpr mode_t kListMode = 0640;
/// Mail that takes longer to remove stays, and is told.
constexpr int kMostTime = 600;

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
  if (!hasMailServer()) return 1;
  const std::string path = mailFile(domain);
  const AsUser mail(kMailUser);
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
  if (!hasMailServer()) return 1;
  const auto isHis = [&](std::string_view, std::string_view folder) { return folder == domain; };
  int done = changeMailTable(kMailDomains, {}, isHis, result) & sayMailActive(domain, result);
  const AsUser mail(kMailUser);
  done &= removeFolder(mailFile(domain), result);
  if (!sys_conf->emailspoolvirtual.isEmpty()) {
    done &= removeFolder(joined(sys_conf->emailspoolvirtual, "/", domain), result);
  }
  return done;
}

int removeMailOf(const AccountHolder& holder, Text& result) {
  int done = removeSpool(holder.name, result);
  if (!hasMailServer()) return done;
  done &= sayMailActive(holder.name, result);
  const AsUser mail(kMailUser);
  done &= removeFile(mailFile(joined("limit_", holder.name)), result);
  return done & removeFile(mailFile(joined("usage/", holder.name, ".bytes")), result);
}

int addDomainOwner(const char* domain, const char* account, Text& result) {
  const auto none = [](std::string_view, std::string_view) { return false; };
  return changeMailTable(kDomainOwners, {{domain, account}}, none, result) &&
         changeMailTable(kMailDomains, {{domain, domain}}, none, result);
}

int removeDomainOwner(const char* account, Text& result) {
  const auto isHis = [&](std::string_view, std::string_view owner) { return owner == account; };
  return changeMailTable(kDomainOwners, {}, isHis, result);
}

}  // namespace zvtaskq
