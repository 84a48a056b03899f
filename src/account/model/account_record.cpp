#include "account/model/account_record.h"

#include <cerrno>
#include <utility>

#include "account/model/account_name.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/record/panel_file.h"
#include "core/record/record_lock.h"
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

/// Bytes of the largest record or list that is taken for an account's.
constexpr long long kMostBytes = 4LL * 1024 * 1024;

/// Reads a file of the panel's that is small enough to be an account's. Without its lock: it is replaced as a whole, so
/// what is read is whole; who reads to write holds the lock by then. With `mayBeMissing` one that is not there, not
/// even as a link, is empty.
template <class File, class... How>
int readPanels(File& file, bool mayBeMissing, How... how) {
  const AsUser panel(kPanelUser);
  file.mostBytes = kMostBytes;
  const bool locks = std::exchange(file.useLock, false);
  const int isRead = file.readFile(how...);
  file.useLock = locks;
  struct stat what {};
  if (isRead || !mayBeMissing || sys::lstat(file.getFilename(), what) == 0 || errno != ENOENT) return isRead;
  file.result = "";
  return 1;
}

/// Reads a file of an account's folder; one that is not there is empty.
template <class File>
int readIfThere(const char* account, const char* name, File& file) {
  if (!isAccountName(account)) return fail(file.result, "Invalid user name");
  file.setFilename(accountFile(account, name).c_str());
  file.belongsTo(kPanelUser);
  return readPanels(file, true);
}

/// The lines of a list that pass; of the others one error-log line each.
template <class Passes>
std::vector<std::string> passing(const ListFile& list, Passes passes, const char* what) {
  std::vector<std::string> names;
  for (int i = 0; i < list.size(); ++i) {
    const char* line = list.getElementAt(i);
    if (passes(line)) {
      names.emplace_back(line);
    } else {
      errorLog("%s: %.100s is no %s", list.getFilename(), line, what);
    }
  }
  return names;
}

}  // namespace

int readAccount(const char* account, ConfigFile& record) {
  if (!isAccountName(account)) return fail(record.result, "Invalid user name");
  record.setFilename(accountFile(account, "user.conf").c_str());
  record.belongsTo(kPanelUser);
  if (!readPanels(record, false)) return 0;
  return record.size() > 0 ? 1 : fail(record.result, record.getFilename(), " is empty");
}

int readAccountFile(const char* account, const char* file, ConfigFile& record) {
  return readIfThere(account, file, record);
}

int readAccountList(const char* account, const char* file, ListFile& list) {
  return readIfThere(account, file, list);
}

int setAccountValue(const char* account, const char* file, const char* key, const char* value) {
  PanelRecord record(accountFile(account, file));
  const RecordLock lock(record);
  if (!readAccountFile(account, file, record)) {
    errorLog("Unable to read %s: %s", record.getFilename(), record.result.orEmpty());
    return 0;
  }
  if (value == nullptr) record.deleteParam(key);
  if (value != nullptr && !record.isValue(key, value)) record.setParam(key, value);
  if (!record.changed || record.writeFile()) return 1;
  errorLog("Unable to write %s: %s", record.getFilename(), record.result.orEmpty());
  return 0;
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
  record.setFilename(domainFile(account, domain, "conf").c_str());
  record.belongsTo(kPanelUser);
  return readPanels(record, false);
}

bool isOthersDomain(const ConfigFile& owners, const char* account, const char* domain) {
  const char* owner = owners.getValue(domain);
  if (owner == nullptr || std::string_view(owner) == account) return false;
  ConfigFile record(nullptr);
  return readDomain(owner, domain, record) != 0;
}

std::string domainFile(const char* account, const char* domain, const char* ending) {
  return accountFile(account, joined("domains/", domain, ".", ending).c_str());
}

int readDomains(const char* account, std::vector<std::string>& domains, Text& result) {
  PanelList list(accountFile(account, "domains.list"));
  if (!readPanels(list, true)) return fail(result, list.result);
  domains = passing(
      list, [](const char* name) { return isValidDomain(name); }, "domain");
  return 1;
}

int readSubdomains(const char* account, const char* domain, std::vector<std::string>& subdomains) {
  PanelList list(domainFile(account, domain, "subdomains"));
  if (!readPanels(list, false)) {
    errorLog("Unable to open %s", list.getFilename());
    return 0;
  }
  // A name that makes a host of the domain is one that can stand in a path.
  subdomains = passing(
      list, [&](const char* name) { return isValidDomain(joined(name, ".", domain).c_str()); }, "subdomain");
  return 1;
}

int readPointers(const char* account, const char* domain, ConfigFile& pointers) {
  pointers.setFilename(domainFile(account, domain, "pointers").c_str());
  pointers.belongsTo(kPanelUser);
  constexpr int kKeepBareLines = 1;
  if (readPanels(pointers, true, kKeepBareLines)) return 1;
  errorLog("%s: %s", pointers.getFilename(), pointers.result.orEmpty());
  return 0;
}

}  // namespace zvtaskq
