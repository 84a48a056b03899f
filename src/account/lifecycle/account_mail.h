// What the mail server keeps of an account: folders of its domains, limits, the spool, and who owns which domain.
//
// All may be called under any identity, which is the same afterwards; 0 comes with a line in `result`.
#pragma once

#include "account/model/account_holder.h"

namespace zvtaskq {

/// Makes the folder of a mail domain, with empty lists. Without a mail server there is none to make.
[[nodiscard]] int makeMailDomain(const char* domain, Text& result);
/// Removes it, its mailboxes of the old format, and the lines of the mail server's tables that name it.
[[nodiscard]] int removeMailDomain(const char* domain, Text& result);
/// Removes what is the account's own: its spool, its limit, its accounting.
[[nodiscard]] int removeMailOf(const AccountHolder& holder, Text& result);

/// The table of domain owners: adds a domain's line, and one in that of the names that mail is taken for; takes out all
/// of an account's.
[[nodiscard]] int addDomainOwner(const char* domain, const char* account, Text& result);
[[nodiscard]] int removeDomainOwner(const char* account, Text& result);

}  // namespace zvtaskq
