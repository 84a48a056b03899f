#include "account/lifecycle/account_data.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include "account/model/account_record.h"
#include "account/model/limits.h"
#include "account/model/user_folder.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/sys/privileges.h"
#include "core/tree/remove_tree.h"

namespace zvtaskq {

namespace {

constexpr mode_t kFolderMode = 0711;
constexpr mode_t kPagesMode = 0755;
constexpr mode_t kGroupHomeMode = 0710;
/// Data folders hold a few files for each domain.
constexpr int kMostTime = 600;

struct Pair {
  const char* key;
  const char* value;
};
/// What a record of an account begins with where its maker says nothing.
constexpr Pair kDefaults[] = {
    {"suspended", "no"}, {"account", "ON"}, {"suspend_at_limit", "ON"}, {"sentwarning", "no"}};

int makeFolder(const std::string& path, Text& result) {
  if (sys::mkdir(path.c_str(), kFolderMode) != 0)
    return fail(result, "Unable to make ", path, ": ", std::strerror(errno));
  // What the umask took away.
  return sys::chmodNoFollow(AT_FDCWD, path.c_str(), kFolderMode) == 0
             ? 1
             : fail(result, "Unable to make ", path, ": ", std::strerror(errno));
}

int writeList(const std::string& path, const char* line, Text& result) {
  PanelList list(path);
  list.addElement(line);
  list.changed = true;
  return list.writeFile() ? 1 : fail(result, list.result);
}

int writeRecord(const std::string& path, ConfigFile& record, Text& result) {
  record.setFilename(path.c_str());
  record.belongsTo(kPanelUser);
  record.changed = true;
  return record.writeFile() ? 1 : fail(result, record.result);
}

/// The used amounts of one that has used nothing.
void zeroes(ConfigFile& record) {
  for (const LimitKey& row : limitKeys()) record.setParam(row.key, 0);
}

int makeDomain(const char* account, const char* domain, const ConfigFile& record, Text& result) {
  if (*domain == '\0') return 1;
  ConfigFile settings(nullptr), used(nullptr);
  settings.setParam("domain", domain);
  settings.setParam("suspended", "no");
  for (const char* key : {"bandwidth", "quota"}) {
    const std::string wanted = record.getOrEmpty(joined("u", key).c_str());
    settings.setParam(key, wanted.empty() ? "unlimited" : wanted.c_str());
    used.setParam(key, 0);
  }
  return writeRecord(domainFile(account, domain, "conf"), settings, result) &&
         writeRecord(domainFile(account, domain, "usage"), used, result) &&
         writeList(domainFile(account, domain, "subdomains"), nullptr, result) &&
         writeList(domainFile(account, domain, "pointers"), nullptr, result);
}

/// What resellers and administrators have besides. Their record of what they may give is empty: what is not said there
/// is taken from their own.
int makeManager(const char* account, Text& result) {
  ConfigFile limits(nullptr), used(nullptr), given(nullptr);
  zeroes(used);
  used.setParam("nusers", 0);
  zeroes(given);
  return writeRecord(accountFile(account, "reseller.conf"), limits, result) &&
         writeRecord(accountFile(account, "reseller.usage"), used, result) &&
         writeRecord(accountFile(account, "reseller.allocation"), given, result) &&
         writeList(accountFile(account, "users.list"), nullptr, result) &&
         writeList(accountFile(account, "packages.list"), nullptr, result) &&
         makeFolder(accountFile(account, "packages"), result);
}

/// One step down in a home, as its user.
Descriptor stepInto(int parent, const char* name, mode_t mode) {
  if (sys::mkdirat(parent, name, mode) != 0 && errno != EEXIST) return {};
  Descriptor folder(sys::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
  return folder && sys::fchmod(folder.get(), mode) == 0 ? std::move(folder) : Descriptor();
}

int setHomeMode(const OpenedFolder& home, uid_t owner) {
  const AsRoot root;
  const unsigned group =
      sys_conf->secure_access_group.isEmpty() ? kUnknownId : getGID(sys_conf->secure_access_group, 1);
  if (group == kUnknownId) return sys::fchmod(home.folder.get(), kFolderMode);
  const int given = sys::fchown(home.folder.get(), owner, group);
  return given == 0 ? sys::fchmod(home.folder.get(), kGroupHomeMode) : given;
}

}  // namespace

int makeData(const ConfigFile& record, Text& result) {
  const char* name = record.getOrEmpty("username");
  const char* domain = record.getOrEmpty("domain");
  const AccountType type = accountTypeOf(record);
  const AsUser panel(kPanelUser);
  ConfigFile used(nullptr);
  zeroes(used);
  return makeFolder(accountFile(name, nullptr), result) && makeFolder(accountFile(name, "domains"), result) &&
         writeRecord(accountFile(name, "user.usage"), used, result) &&
         writeList(accountFile(name, "domains.list"), domain, result) &&
         writeList(accountFile(name, "ip.list"), record.getOrEmpty("ip"), result) &&
         writeList(accountFile(name, "tickets.list"), nullptr, result) && makeDomain(name, domain, record, result) &&
         (type == AccountType::user || makeManager(name, result));
}

int writeUserRecord(const ConfigFile& record, Text& result) {
  ConfigFile whole(nullptr);
  whole.fill(&record);
  for (const Pair& pair : kDefaults) {
    if (!whole.existsParam(pair.key)) whole.setParam(pair.key, pair.value);
  }
  if (!whole.existsParam("date_created")) whole.setParam("date_created", static_cast<long long>(std::time(nullptr)));
  return writeRecord(accountFile(record.getOrEmpty("username"), "user.conf"), whole, result);
}

int removeData(const char* account, Text& result) {
  const AsUser panel(kPanelUser);
  const Removal removal = removeTree(accountFile(account, nullptr), {LLONG_MAX, kMostTime});
  if (removal.isDone()) return 1;
  return fail(result, "Unable to remove ", removal.why.empty() ? accountFile(account, nullptr) : removal.why);
}

int makePages(const char* account, const char* domain, Text& result) {
  const OpenedFolder home = openHome(account);
  const Ids owner = idsOf(account);
  if (!home || setHomeMode(home, owner.user) != 0) return fail(result, "Unable to prepare the home of ", account);
  const AsUser user(owner);
  if (!user.taken()) return fail(result, "Unable to work as ", account);
  if (*domain == '\0') return 1;
  const Descriptor domains = stepInto(home.folder.get(), "domains", kFolderMode);
  const Descriptor own = domains ? stepInto(domains.get(), domain, kFolderMode) : Descriptor();
  const Descriptor pages = own ? stepInto(own.get(), "public_html", kPagesMode) : Descriptor();
  return pages ? 1 : fail(result, "Unable to make the pages of ", domain, ": ", std::strerror(errno));
}

}  // namespace zvtaskq
