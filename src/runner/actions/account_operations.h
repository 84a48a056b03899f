// What the account model does for queue lines. A build that holds the work provides it.
//
// Each returns 1 on success. Where a `result` is given, a failure appends its reason there, in lines for people.
#pragma once

#include "core/sys/operation.h"
#include "core/text/text.h"

namespace zvtaskq {

class ConfigFile;
class ListFile;

struct AccountOperations {
  /// Counts anew how many accounts use each address.
  Operation<> recountIpStatistics{"the recount of the IP statistics"};
  /// Checks a user's list of domains against the table of domain owners.
  Operation<const char* /*user*/> confirmDomainsList{"the check of a user's domains"};
  /// Deletes the selected users; `outcome` gets one line a user.
  Operation<ListFile* /*users*/, bool /*leaveDns*/, Text* /*outcome*/> deleteUsers{"the deletion of accounts"};
  /// Swaps the linked addresses.
  Operation<> swapLinkedIps{"the swap of linked addresses"};
  /// Sets the disk quota (blocks in megabytes, 0 no limit; inodes, 0 no limit) of a user.
  Operation<const char* /*user*/, int /*quota*/, long long /*inodes*/, Text* /*result*/> setQuota{"the disk quota"};
  /// The public-html links of one user, or of all for null.
  Operation<const char* /*user*/> rewriteLinks{"the public-html links"};
  /// The table of domains to addresses: of the domains in the record (domain and address a pair), or with `whole` of
  /// exactly these.
  Operation<ConfigFile* /*addresses*/, bool /*whole*/> writeDomainIps{"the table of domains to IP addresses"};
  /// The mail server's HELO table for the addresses of the list.
  Operation<ListFile* /*addresses*/> writeHeloData{"the mail server's HELO table"};
  /// The access group of every user's files.
  Operation<const char* /*group*/> rewriteAccessGroup{"the access group of users' files"};
};

/// The operations this build holds.
AccountOperations& accountOperations();

}  // namespace zvtaskq
