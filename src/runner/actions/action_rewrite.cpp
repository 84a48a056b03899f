// The row that regenerates configuration files, and its table.
#include <climits>
#include <string>

#include "account/model/account_record.h"
#include "core/config/config.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/panel/task.h"
#include "core/record/list_file.h"
#include "core/sys/identity.h"
#include "core/sys/log.h"
#include "core/text/names.h"
#include "runner/actions/account_operations.h"
#include "runner/actions/action_rows.h"
#include "runner/actions/mail_operations.h"
#include "runner/actions/services_operations.h"
#include "runner/actions/tally_operations.h"

namespace zvtaskq {

namespace {

/// The domains that the line names in `domain`, `domain0`, `domain1`, ...; none means all.
void domainsOf(const Task& task, ListFile& domains) {
  domains.addElement(task.given("domain"));
  for (int i = 0;; ++i) {
    const char* domain = task.given(joined("domain", std::to_string(i)).c_str());
    if (domain == nullptr) return;
    domains.addElement(domain);
  }
}

/// The named domains, or all that have an owner when none is named.
void domainsOrAll(const Task& task, ListFile& domains) {
  domainsOf(task, domains);
  if (domains.size() > 0) return;
  ConfigFile owners(nullptr);
  if (!readDomainOwners(owners)) errorLog("Unable to read %s: %s", domainOwnersFile().c_str(), owners.result.orEmpty());
  domains.fill_name(&owners);
}

bool isOn(const Task& task, const char* key) {
  return task.is(key, "yes") || task.is(key, "1");
}

// --- Services --------------------------------------------------------------------------------------------------

void rewriteWebServer(const Task& task) {
  serviceOperations().rewriteWebServer(task.given("user"));
  queueTask("httpd", "restart");
}

void rewriteFtpDatabase(const Task&) {
  serviceOperations().rewriteFtpDatabase();
}

void signZones(const Task& task) {
  ListFile domains(nullptr);
  domainsOf(task, domains);
  serviceOperations().signZones(&domains);
}

void createDkim(const char* domain) {
  Text result;
  if (!serviceOperations().createDkimKeys(domain, &result)) {
    errorLog("Error creating DKIM files for %s: %s", domain, result.orEmpty());
  } else if (!serviceOperations().addDkimRecord(domain, &result)) {
    errorLog("Error addding DKIM to dns for %s: %s", domain, result.orEmpty());
  }
}

void rewriteDkim(const Task& task) {
  if (!sys_conf->dkim) {
    errorLogAndDebug(10, "dkim is not enabled. Enable dkim=1 if you want to use it.");
    return;
  }
  if (serviceOperations().createDkimKeys.missing()) return;
  ListFile domains(nullptr);
  domainsOrAll(task, domains);
  for (int i = 0; i < domains.size(); ++i) createDkim(domains.getElementAt(i));
  queueTask("named", "reload");
}

void rewriteZones(const Task& task) {
  const auto& rewrite = serviceOperations().rewriteZones;
  if (rewrite.missing()) return;
  ListFile domains(nullptr);
  domainsOf(task, domains);
  Text result;
  if (rewrite(&domains, isOn(task, "update_serial"), &result)) {
    systemLog("Named rewritten");
  } else {
    errorLog("%s%s", "Error rewriting named: ", result.orEmpty());
  }
  queueTask("named", "reload");
}

void rewriteIps(const Task&) {
  ListFile addresses(adminFile("ip.list").c_str());
  addresses.setUser(kPanelUser);
  if (!addresses.readFile()) {
    errorLog("Unable to read ips file: %s", addresses.result.orEmpty());
    return;
  }
  const auto& write = serviceOperations().writeIpsConfiguration;
  if (write.missing()) return;
  Text result;
  if (!write(&addresses, &result)) {
    errorLog("Unable to write ips.conf file: %s", result.orEmpty());
    return;
  }
  systemLog("ips.conf rewritten");
  queueTask("httpd", "restart");
}

void checkCertificates(const Task&) {
  serviceOperations().checkCertificates();
}

// --- Accounts --------------------------------------------------------------------------------------------------

void rewriteAccessGroup(const Task&) {
  if (sys_conf->secure_access_group.isEmpty()) {
    errorLogAndDebug(10, "Unable to rewrite secure_access_group.  It's not set in the zorvane.conf");
    return;
  }
  if (!accountOperations().rewriteAccessGroup(sys_conf->secure_access_group)) return;
  for (const char* service : {"httpd", "exim", "proftpd", "zorvane"}) queueTask(service, "restart");
  if (sys_conf->dovecot) queueTask("dovecot", "restart");
}

void rewriteLinks(const Task& task) {
  accountOperations().rewriteLinks(task.given("user"));
}

void recountIps(const Task&) {
  accountOperations().recountIpStatistics();
}

/// A limit of the record as a number, 0 when there is none.
long long limitOf(const ConfigFile& account, const char* key) {
  long long limit = 0;
  static_cast<void>(account.getValue(key, &limit));
  return limit < 0 ? 0 : limit;
}

void setQuota(const char* user) {
  ConfigFile account(nullptr);
  const bool read = readAccount(user, account) != 0;
  const int quota = static_cast<int>(std::min<long long>(limitOf(account, "quota"), INT_MAX));
  const long long inodes = limitOf(account, "inode");
  Text result;
  if (read && accountOperations().setQuota(user, quota, inodes, &result)) return;
  errorLog("Error setting quota to %d (inodes=%lld) for user %s : %s", quota, inodes, user,
           read ? result.orEmpty() : account.result.orEmpty());
}

void rewriteQuotas(const Task& task) {
  if (accountOperations().setQuota.missing()) return;
  ListFile users(nullptr);
  users.addElement(task.given("user"));
  if (users.size() == 0 && !listAccounts(users)) errorLog("Unable to open %s", sys_conf->userdata.orEmpty());
  for (int i = 0; i < users.size(); ++i) setQuota(users.getElementAt(i));
  ListFile everybody(nullptr);
  tallyOperations().cacheAllUsers(&everybody, false);
}

/// Adds a domain and its pointers with the domain's address to the table.
void addDomainIp(const char* domain, const char* owner, ConfigFile& table) {
  ConfigFile record(nullptr);
  if (!readDomain(owner, domain, record)) {
    errorLog("Unable to read %s: %s", record.getFilename() == nullptr ? domain : record.getFilename(),
             record.result.orEmpty());
    return;
  }
  const char* ip = record.getValue("ip");
  if (!isValidIP(ip)) {
    errorLog("'%s' is not a valid IP from %s", ip == nullptr ? "" : ip, record.getFilename());
    return;
  }
  table.setParam(domain, ip);
  ListFile pointers(accountFile(owner, joined("domains/", domain, ".pointers").c_str()).c_str());
  pointers.setUser(kPanelUser);
  // A domain without pointers has no such file.
  if (!pointers.readFile()) return;
  for (int i = 0; i < pointers.size(); ++i) table.setParam(pointers.getElementAt(i), ip);
}

void rewriteDomainIps(const Task& task) {
  if (accountOperations().writeDomainIps.missing()) return;
  ConfigFile owners(nullptr);
  if (!readDomainOwners(owners)) {
    errorLog("Unable to read %s: %s", domainOwnersFile().c_str(), owners.result.orEmpty());
    return;
  }
  ConfigFile table(nullptr);
  const char* wanted = task.given("domain");
  if (wanted != nullptr && !owners.existsParam(wanted)) {
    errorLog("Cannot find %s in %s", wanted, domainOwnersFile().c_str());
    return;
  }
  for (long long i = 0; i < owners.size(); ++i) {
    if (wanted == nullptr || std::string_view(wanted) == owners.getNameAt(i)) {
      addDomainIp(owners.getNameAt(i), owners.getValueAt(i), table);
    }
  }
  accountOperations().writeDomainIps(&table, wanted == nullptr);
}

void rewriteHeloData(const Task&) {
  ListFile addresses(adminFile("ip.list").c_str());
  addresses.setUser(kPanelUser);
  if (!addresses.readFile()) {
    errorLog("ip.list: readFile error: %s", addresses.result.orEmpty());
    return;
  }
  accountOperations().writeHeloData(&addresses);
}

// --- Mail ------------------------------------------------------------------------------------------------------

void rewriteFilters(const Task& task) {
  mailOperations().rewriteFilters(task.given("user"));
}

void rewriteMailPasswords(const Task& task) {
  mailOperations().rewritePasswords(task.given("user"));
}

constexpr TaskRow kRewrites[] = {
    {"httpd", rewriteWebServer},
    {"nginx", rewriteWebServer},
    {"litespeed", rewriteWebServer},
    {"pureftp_db", rewriteFtpDatabase},
    {"dnssec", signZones},
    {"dkim", rewriteDkim},
    {"secure_access_group", rewriteAccessGroup},
    {"links", rewriteLinks},
    {"ips", rewriteIps},
    {"ipcount", recountIps},
    {"named", rewriteZones},
    {"filter", rewriteFilters},
    {"quota", rewriteQuotas},
    {"email_passwd", rewriteMailPasswords},
    {"domainips", rewriteDomainIps},
    {"helo_data", rewriteHeloData},
    {"letsencrypt", checkCertificates},
};

}  // namespace

void rewriteAction(const Task& task) {
  if (runRow(kRewrites, task.value(), task)) return;
  errorLogAndDebug(10, "Unknown rewrite: %s", task.value());
}

}  // namespace zvtaskq
