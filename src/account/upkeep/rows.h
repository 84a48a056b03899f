// What the rows of actions.h do that stand in files of their own. Each runs as nobody and leaves it, tells of its
// failures in the error log and answers 0 for them; what is one account's or one address's fault leaves the others
// right. In demonstration mode nothing is changed.
#pragma once

#include "core/panel/task.h"

namespace zvtaskq {

/// Every address that has others linked to it changes places with the first of them: accounts, domains and lists that
/// name the one name the other afterwards. A swap that was cut short is finished by the next line.
int swapLinkedIps(const Task& task);
/// Checks the "domains.list" of the line's `user` against the table of domain owners, and repairs both.
int confirmDomainsList(const Task& task);
/// Gives every account the features that its record says nothing of.
int addOptions(const Task& task);
/// "domainips": the table of domains to addresses, of the line's `domain` or of all.
int rewriteDomainIps(const Task& task);
/// "helo_data": the name by which the mail server greets from each address.
int rewriteHeloData(const Task& task);
/// What the mail server's files say of the line's `user`, or of all: ids, homes and limits of the mailboxes, the names
/// that mail is taken for, suspensions.
int rewriteMailPasswords(const Task& task);
/// The links to the web pages in the homes of the line's `user` or of all.
int rewriteLinks(const Task& task);
/// Gives the group `secure_access_group` the way into every home, and closes it for others.
int rewriteAccessGroup(const Task& task);

}  // namespace zvtaskq
