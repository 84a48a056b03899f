#include "account/lifecycle/creation_checks.h"

#include <grp.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "account/lifecycle/account_lists.h"
#include "account/model/account_holder.h"
#include "account/model/account_name.h"
#include "account/model/system_accounts.h"
#include "account/suspension/account_databases.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "mail/mail_files.h"

namespace zvtaskq {

namespace {

/// Names that stand for somebody or something else: in lists and messages, or before the "_" of a database of the
/// server's own.
constexpr std::string_view kReserved[] = {"root",   "zvadmin", "nobody", "all",  "multiple",    "shared",
                                          "server", "mysql",   "sys",    "test", "information", "performance"};

bool stands(const std::string& path, const char* user) {
  const AsUser owner(user);
  struct stat what {};
  return sys::lstat(path.c_str(), what) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

/// Whether an account may have a group that is there already: never one of the system's, whose members may do more
/// than others, nor the one that the way into all homes is open to.
bool mayJoin(const group& taken) {
  return sys_conf->check_group_on_user_create == 0 && taken.gr_gid >= kFirstPerson &&
         sys_conf->secure_access_group.view() != taken.gr_name;
}

int isFreeName(const char* name, Text& result) {
  if (std::find(std::begin(kReserved), std::end(kReserved), name) != std::end(kReserved)) {
    return fail(result, "The name ", name, " is reserved");
  }
  if (stands(accountFile(name, nullptr), kPanelUser)) return fail(result, "Account ", name, " exists already");
  if (systemAccounts().find(name) != nullptr) return fail(result, "There is a system account ", name, " already");
  const group* taken = ::getgrnam(name);
  if (taken != nullptr && !mayJoin(*taken)) return fail(result, "There is a group ", name, " already");
  return hasNoDatabases(name, result);
}

int isFreeDomain(const char* domain, Text& result) {
  if (*domain == '\0') return 1;
  if (!isValidDomain(domain)) return fail(result, domain, " is no domain");
  ConfigFile owners(nullptr);
  if (stands(domainOwnersFile(), "root") && !readDomainOwners(owners)) return fail(result, owners.result);
  if (owners.existsParam(domain)) return fail(result, "The domain ", domain, " is another account's");
  const std::string mail = joined(sys_conf->emailvirtual, "/", domain);
  if (getUID(kMailUser) != kUnknownId && stands(mail, kMailUser)) return fail(result, mail, " is there already");
  return 1;
}

/// A creator must be able to have accounts; only an administrator makes managers.
int isFitCreator(const ConfigFile& record, Text& result) {
  const char* creator = record.getOrEmpty("creator");
  const AccountType wanted = accountTypeOf(record);
  if (wanted == AccountType::unknown) return fail(result, record.getOrEmpty("usertype"), " is no type of an account");
  ConfigFile account(nullptr);
  if (!readAccount(creator, account)) return fail(result, "Unable to read account ", creator, " : ", account.result);
  const AccountType type = accountTypeOf(account);
  const bool isManager = type == AccountType::reseller || type == AccountType::admin;
  if (isManager && (wanted == AccountType::user || type == AccountType::admin)) return 1;
  return fail(result, "Account ", creator, " may not make such an account");
}

}  // namespace

int mayCreate(const ConfigFile& record, Text& result) {
  const char* name = record.getOrEmpty("username");
  if (!isAccountName(name)) return fail(result, "Invalid user name");
  return isFreeName(name, result) && isFreeDomain(record.getOrEmpty("domain"), result) &&
         isFitCreator(record, result) && mayUseAddress(record.getOrEmpty("ip"), record.getOrEmpty("creator"), result) &&
         mayAllocate(record, result);
}

}  // namespace zvtaskq
