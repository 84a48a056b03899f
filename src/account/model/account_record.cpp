#include "account/model/account_record.h"

#include "account/model/account_name.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "core/tree/folder_reader.h"

namespace zvtaskq {

namespace {

struct TypeName {
  const char* name;
  AccountType type;
};
constexpr TypeName kTypes[] = {
    {"user", AccountType::user}, {"reseller", AccountType::reseller}, {"admin", AccountType::admin}};

}  // namespace

int readAccount(const char* account, ConfigFile& record) {
  if (!isAccountName(account)) return fail(record.result, "Invalid user name");
  record.setFilename(accountFile(account, "user.conf").c_str());
  record.belongsTo(kPanelUser);
  return record.readFile();
}

int readOwner(const Task& task, ConfigFile& record) {
  const char* owner = task.get("owner");
  if (readAccount(owner, record)) return 1;
  errorLog(task.is("type", "admin") ? "Cannot read data for Admin %s : %s" : "Cannot read data for Reseller %s : %s",
           owner, record.result.orEmpty());
  return 0;
}

AccountType accountTypeOf(const ConfigFile& record) {
  for (const TypeName& row : kTypes) {
    if (record.isValue("usertype", row.name)) return row.type;
  }
  return AccountType::unknown;
}

int listAccounts(ListFile& names) {
  const AsUser panel(kPanelUser);
  FolderReader folder(sys_conf->userdata);
  if (!folder) return 0;
  while (const dirent* entry = folder.next()) {
    if (isAccountName(entry->d_name)) names.addElement(entry->d_name);
  }
  return 1;
}

int readDomainOwners(ConfigFile& owners) {
  owners.setFilename(domainOwnersFile().c_str());
  owners.setUser(nullptr);
  const AsRoot root;
  // The table belongs to the mail server, and is written there as "domain: owner".
  owners.separator = ':';
  if (!owners.readFile()) return 0;
  owners.trimValueFront();
  return 1;
}

int readDomain(const char* account, const char* domain, ConfigFile& record) {
  if (!isAccountName(account) || !isValidDomain(domain)) return fail(record.result, "Invalid user or domain name");
  record.setFilename(accountFile(account, joined("domains/", domain, ".conf").c_str()).c_str());
  record.belongsTo(kPanelUser);
  return record.readFile();
}

}  // namespace zvtaskq
