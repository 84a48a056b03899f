// The links in a home that lead to the web pages.
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "account/model/account_record.h"
#include "account/model/system_accounts.h"
#include "account/model/user_folder.h"
#include "account/upkeep/each_account.h"
#include "account/upkeep/rows.h"
#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "core/tree/safe_walk.h"

namespace zvtaskq {

namespace {

constexpr const char* kPages = "public_html";
constexpr const char* kSecurePages = "private_html";
/// A link on its way to its place.
constexpr const char* kNewLink = ".public_html.new";

/// A home that is held open, worked in as its user.
class HomeLinks {
 public:
  explicit HomeLinks(const OpenedFolder& home) : home_(home) {}

  /// Makes the link to the pages of the main domain. 0 with an error-log line.
  int linkPages(const std::string& domain) {
    const std::string below = joined("domains/", domain, "/", kPages);
    const std::string target = joined(sys_conf->old_public_html_link ? home_.path : ".", "/", below);
    const int folder = home_.folder.get();
    struct stat what {};
    if (!openBeneath(folder, below.c_str(), O_PATH | O_DIRECTORY)) return tell(below.c_str());
    if (sys::lstatAt(folder, kPages, what) != 0) return errno == ENOENT ? putLink(target) : tell(kPages);
    if (S_ISLNK(what.st_mode) && leadsTo(target)) return 1;
    // A folder that pages have been put into is the user's; an empty one is in the way.
    if (S_ISDIR(what.st_mode) && sys::unlinkat(folder, kPages, AT_REMOVEDIR) != 0) return tell(kPages);
    if (S_ISDIR(what.st_mode) || S_ISLNK(what.st_mode)) return putLink(target);
    errno = EEXIST;
    return tell(kPages);
  }

  /// Without pages of its own for secure connections, a domain shows the others there.
  int linkSecurePages(const std::string& domain) {
    const std::string path = joined("domains/", domain);
    const Descriptor folder = openBeneath(home_.folder.get(), path.c_str(), O_PATH | O_DIRECTORY);
    if (!folder) return tell(path.c_str());
    struct stat what {};
    if (sys::lstatAt(folder.get(), kSecurePages, what) == 0) return 1;
    if (sys::lstatAt(folder.get(), kPages, what) != 0 || !S_ISDIR(what.st_mode)) return 1;
    if (sys::symlinkat(joined("./", kPages).c_str(), folder.get(), kSecurePages) == 0 || errno == EEXIST) return 1;
    return tell(joined(path, "/", kSecurePages).c_str());
  }

 private:
  bool leadsTo(const std::string& target) const {
    char now[PATH_MAX];
    const ssize_t length = ::readlinkat(home_.folder.get(), kPages, now, sizeof now);
    return length > 0 && target == std::string_view(now, static_cast<std::size_t>(length));
  }

  /// In the place of the link that is there, or of nothing.
  int putLink(const std::string& target) {
    const int folder = home_.folder.get();
    if (sys::unlinkat(folder, kNewLink, 0) != 0 && errno != ENOENT) return tell(kNewLink);
    if (sys::symlinkat(target.c_str(), folder, kNewLink) != 0) return tell(kPages);
    if (sys::renameat(folder, kNewLink, folder, kPages) == 0) return 1;
    const int error = errno;
    static_cast<void>(sys::unlinkat(folder, kNewLink, 0));
    errno = error;
    return tell(kPages);
  }

  int tell(const char* name) const {
    errorLog("Unable to link the web pages in %s: %s: %s", home_.path.c_str(), name, std::strerror(errno));
    return 0;
  }

  const OpenedFolder& home_;
};

int linkIn(const char* account) {
  ConfigFile record(nullptr);
  std::vector<std::string> domains;
  Text result;
  if (!readAccount(account, record)) {
    errorLog("%s: %s", record.getFilename(), record.result.orEmpty());
    return 0;
  }
  int outcome = readDomains(account, domains, result);
  if (!outcome) errorLog("domains.list of %s: %s", account, result.orEmpty());
  const char* main = record.getValue("domain");
  const bool hasMain = main != nullptr && *main != '\0';
  if (!hasMain && domains.empty()) return outcome;
  const OpenedFolder home = openHome(account);
  if (!home) return 0;
  const Ids owner = systemAccounts().idsOf(account);
  const AsUser user(owner);
  if (!user.taken() || owner.user == kRootIds.user) return 0;
  HomeLinks links(home);
  if (hasMain && !isValidDomain(main)) {
    errorLog("%s: %.100s is no domain", record.getFilename(), main);
    outcome = 0;
  } else if (hasMain) {
    outcome &= links.linkPages(main);
  }
  for (const std::string& domain : domains) outcome &= links.linkSecurePages(domain);
  return outcome;
}

}  // namespace

int rewriteLinks(const Task& task) {
  if (isDemo()) return 1;
  return forEachAccount(task.getOrNull("user"), "the links to the web pages", linkIn);
}

}  // namespace zvtaskq
