// What the mail server's files say of an account: its mailboxes, the names that mail is taken for, its suspension.
#include <cerrno>
#include <set>
#include <string>
#include <string_view>

#include "account/model/account_holder.h"
#include "account/model/account_record.h"
#include "account/model/system_accounts.h"
#include "account/upkeep/each_account.h"
#include "account/upkeep/rows.h"
#include "core/config/config.h"
#include "core/files/line_edit.h"
#include "core/panel/run_state.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "mail/mail_files.h"
#include "mail/mailbox_line.h"
#include "mail/server_tables.h"

namespace zvtaskq {

namespace {

constexpr long long kMegabyte = 1048576;

/// The names that mail is taken for, of the domains that were looked at: written at the end, all at once.
struct Names {
  /// As the table stood.
  MailPairs before;
  MailPairs wanted;
  std::set<std::string, std::less<>> domains;

  int write() const {
    Text result;
    const auto isOld = [&](std::string_view, std::string_view domain) { return domains.contains(domain); };
    if (changeMailTable(kMailDomains, wanted, isOld, result)) return 1;
    errorLog("%s", result.orEmpty());
    return 0;
  }
};

/// An account that is worked on by nobody else meanwhile.
class MailUpkeep {
 public:
  MailUpkeep(const ConfigFile& owners, Names& names) : owners_(owners), names_(names) {}

  int run(const char* account, Text& result) {
    ConfigFile record(nullptr);
    if (!readAccount(account, record)) return fail(result, record.result);
    if (!findHolder(account, holder_, result)) return 0;
    const SystemAccount* system = systemAccounts().find(account);
    if (system != nullptr) home_ = system->home;
    int done = sayWhether(record, account, result);
    for (const std::string& domain : holder_.domains) done &= setDomain(domain, result);
    return done;
  }

 private:
  int setDomain(const std::string& domain, Text& result) {
    ConfigFile record(nullptr);
    record.useLock = false;
    if (!readDomain(holder_.name.c_str(), domain.c_str(), record)) return fail(result, domain, ": ", record.result);
    return sayWhether(record, domain.c_str(), result) & setNames(domain, result) & setMailboxes(domain, result);
  }

  static int sayWhether(const ConfigFile& record, const char* name, Text& result) {
    return record.isValue("suspended", "yes") ? sayMailSuspended(name, result) : sayMailActive(name, result);
  }

  /// The domain's own name, and those of its pointers that are no redirects.
  int setNames(const std::string& domain, Text& result) {
    ConfigFile pointers(nullptr);
    pointers.useLock = false;
    if (!readPointers(holder_.name.c_str(), domain.c_str(), pointers)) {
      return fail(result, "the pointers of ", domain, " cannot be told");
    }
    names_.domains.insert(domain);
    names_.wanted.insert_or_assign(domain, domain);
    for (long long i = 0; i < pointers.size(); ++i) {
      const char* pointer = pointers.getNameAt(i);
      if (isValidDomain(pointer) && *pointers.getOrEmpty(pointer) == '\0' && mayLead(pointer, domain)) {
        names_.wanted.try_emplace(pointer, domain);
      }
    }
    return 1;
  }

  /// What is a domain itself has mail of its own; what leads to somebody's domain already goes on doing so.
  bool mayLead(const char* pointer, const std::string& domain) const {
    if (owners_.existsParam(pointer)) return false;
    const auto before = names_.before.find(std::string_view(pointer));
    return before == names_.before.end() || before->second == domain || !owners_.existsParam(before->second.c_str());
  }

  int setMailboxes(const std::string& domain, Text& result) {
    // An account without a system account has nobody who could own mail.
    if (!holder_.isPerson() || !isThere(domain)) return 1;
    const auto set = [&](std::string_view text, std::string& instead) {
      MailboxLine line(text);
      if (!line.isOne()) return tellOdd(domain, line);
      line.ids = holder_.ids;
      line.home = joined(home_, "/imap/", domain, "/", line.name);
      if (line.quota == 0 && sys_conf->add_userdb_quota) line.quota = sys_conf->default_pop_quota * kMegabyte;
      instead = line.text();
      return instead == text ? LineFate::keep : LineFate::replace;
    };
    return editLines(mailFile(joined(domain, "/passwd")), idsOf(kMailUser), set, {}, result);
  }

  static bool isThere(const std::string& domain) {
    const AsUser mail(kMailUser);
    return openMailPath(joined(domain, "/passwd"), O_PATH).isOpen() || errno != ENOENT;
  }

  static LineFate tellOdd(const std::string& domain, const MailboxLine& line) {
    if (!line.isEmpty) {
      errorLog("%s: '%s' in its password file is no mailbox, and is left alone", domain.c_str(),
               std::string(line.name.substr(0, 100)).c_str());
    }
    return LineFate::keep;
  }

  const ConfigFile& owners_;
  Names& names_;
  AccountHolder holder_;
  std::string home_;
};

}  // namespace

int rewriteMailPasswords(const Task& task) {
  if (isDemo() || !hasMailServer()) return 1;
  ConfigFile owners(nullptr);
  owners.useLock = false;
  if (!readDomainOwners(owners)) {
    errorLog("%s: %s", owners.getFilename(), owners.result.orEmpty());
    return 0;
  }
  Names names;
  Text why;
  if (!readMailTable(kMailDomains, names.before, why)) {
    errorLog("%s", why.orEmpty());
    return 0;
  }
  const auto rewrite = [&](const char* account) {
    Text result;
    if (MailUpkeep(owners, names).run(account, result)) return 1;
    errorLog("The mail files of %s: %s", account, result.orEmpty());
    return 0;
  };
  const int done = forEachAccount(task.getOrNull("user"), "the mail password files", rewrite);
  return names.write() & done;
}

}  // namespace zvtaskq
