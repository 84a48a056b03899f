#include "runner/actions/not_built.h"

#include <span>

#include "core/panel/task.h"
#include "core/sys/log.h"

namespace zvtaskq {

namespace {

struct Missing {
  const char* action;
  const char* key;
  const char* word;
  const char* words;
};

constexpr Missing kMissing[] = {
    {"tally", "value", "all", "the tally of all accounts"},
    {"tally", "type", "user", "the tally of a user"},
    {"tally", "type", "reseller", "the tally of a reseller"},
    {"quotatally", "value", "all", "the tally of all accounts"},
    {"quotatally", "type", "user", "the tally of a user"},
    {"quotatally", "type", "reseller", "the tally of a reseller"},
    {"bandwidthtally", "value", "all", "the tally of all accounts"},
    {"bandwidthtally", "type", "user", "the tally of a user"},
    {"bandwidthtally", "type", "reseller", "the tally of a reseller"},
    {"syscheck", nullptr, nullptr, "the system self-check"},
    {"sync", "type", "cluster", "the DNS cluster"},
    {"cache", "value", "showallusers", "the cached list of all users"},
    {"cache", "value", "safemode", "the PHP safe-mode cache"},
    {"cache", "type", "popquota", "the cache of mailbox disk usage"},
    {"confirm", "type", "httpd.conf", "the web server's include"},
    {"confirm", "type", "domains.list", "the check of a user's domains"},
    {"confirm_removed", "type", "httpd.conf", "the web server's removal of an include"},
    {"backup", "type", "user", "a user's backup"},
    {"backup", "type", "reseller", "a reseller's backup"},
    {"backup", "type", "admin", "an administrator's backup"},
    {"backup", "type", "system", "the system backup"},
    {"backup", "type", "sitebackup", "a site backup"},
    {"convert", "value", "cronbackups", "the conversion of backup schedules"},
    {"convert", "value", "todovecot", "the conversion of mailboxes"},
    {"convert", "value", "suspendedmysql", "the conversion of suspended databases"},
    {"convert", "value", "unifiedftp", "the conversion to one FTP password file"},
    {"convert", "value", "imap_inbox_prefix", "the inbox-prefix folders"},
    {"delete", "value", "mbox", "the deletion of old mbox files"},
    {"addspam", nullptr, nullptr, "the default spam and feature settings"},
    {"addoptions", nullptr, nullptr, "the default spam and feature settings"},
    {"restore", "type", "reseller", "a reseller's restore"},
    {"restore", "type", "admin", "an administrator's restore"},
    {"reset", "value", "all", "the reset of all usage counters"},
    {"reset", "type", "user", "the reset of a user's usage counters"},
    {"cleanreset", "value", "all", "the clean reset of all usage counters"},
    {"rewrite", "value", "httpd", "the web-server configuration"},
    {"rewrite", "value", "nginx", "the web-server configuration"},
    {"rewrite", "value", "litespeed", "the web-server configuration"},
    {"rewrite", "value", "pureftp_db", "the FTP password database"},
    {"rewrite", "value", "dnssec", "the signing of DNS zones"},
    {"rewrite", "value", "dkim", "DKIM key files"},
    {"rewrite", "value", "secure_access_group", "the access group of users' files"},
    {"rewrite", "value", "links", "the public-html links"},
    {"rewrite", "value", "ips", "the web server's ips.conf"},
    {"rewrite", "value", "ipcount", "the recount of the IP statistics"},
    {"rewrite", "value", "named", "the DNS zones"},
    {"rewrite", "value", "filter", "the mail filters"},
    {"rewrite", "value", "email_passwd", "the mail password files"},
    {"rewrite", "value", "domainips", "the table of domains to IP addresses"},
    {"rewrite", "value", "helo_data", "the mail server's HELO table"},
    {"rewrite", "value", "letsencrypt", "the check of certificate expiries"},
    {"defaultspam", nullptr, nullptr, "the default spam settings of a domain"},
    {"update", "value", "program", "the update of the panel software"},
    {"ipswap", "value", "linked_ips", "the swap of linked addresses"},
};

constexpr Missing kMissingForMail[] = {
    {"limit", nullptr, nullptr, "the sending limit of an account"},
    {"userlimit", nullptr, nullptr, "the sending limit of a mailbox"},
    {"block_cracking", nullptr, nullptr, "the notice about blocked senders"},
};

const char* wordsIn(std::span<const Missing> rows, const Task& task) {
  for (const Missing& row : rows) {
    if (task.is("action", row.action) && (row.key == nullptr || task.is(row.key, row.word))) return row.words;
  }
  return nullptr;
}

}  // namespace

const char* missingFor(const Task& task) {
  return wordsIn(kMissing, task);
}

const char* missingForMail(const Task& task) {
  return wordsIn(kMissingForMail, task);
}

void reportMissing(const char* what, const char* words) {
  if (words != nullptr) errorLog("%s: not available in this build: %s", printableLine(what).c_str(), words);
}

}  // namespace zvtaskq
