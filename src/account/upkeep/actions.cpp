#include "account/upkeep/actions.h"

#include "account/model/address_count.h"
#include "account/upkeep/rows.h"

namespace zvtaskq {

namespace {

int countAddressUsers(const Task&) {
  return recountIps();
}

constexpr ActionRow kRows[] = {
    {"confirm", "type", "domains.list", confirmDomainsList, "checks a user's domains against the table of owners"},
    {"ipswap", "value", "linked_ips", swapLinkedIps, "swaps linked addresses"},
    {"rewrite", "value", "secure_access_group", rewriteAccessGroup, "sets the access group of every user's files"},
    {"rewrite", "value", "links", rewriteLinks, "makes the links to the web pages in the homes"},
    {"rewrite", "value", "ipcount", countAddressUsers, "counts the accounts of each address"},
    {"rewrite", "value", "domainips", rewriteDomainIps, "rewrites the mail server's table of domains to addresses"},
    {"rewrite", "value", "email_passwd", rewriteMailPasswords, "rewrites a user's mail password files"},
    {"rewrite", "value", "helo_data", rewriteHeloData, "rewrites the mail server's HELO table"},
};

}  // namespace

ActionRows upkeepActions() {
  return kRows;
}

}  // namespace zvtaskq
