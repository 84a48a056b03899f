// What the mail room does for queue lines and for a run's upkeep. A build that holds the work provides it.
//
// Each returns 1 on success. Where a `result` is given, a failure appends its reason there, in lines for people.
#pragma once

#include "core/sys/operation.h"
#include "core/text/text.h"

namespace zvtaskq {

class ConfigFile;

struct MailOperations {
  /// Vacation messages switched by their dates: of every domain, or of one.
  Operation<> switchAllVacations{"vacation messages"};
  Operation<const char* /*domain*/> switchVacations{"vacation messages of a domain"};
  /// Ages one of the two block lists (0 or 1) of senders blocked for password cracking.
  Operation<int /*which*/> unblockSenders{"the unblocking of mail senders"};
  /// A mail account reached its sending limit, or one mailbox of it did.
  Operation<const char* /*user*/, const char* /*line*/> handleLimit{"the sending limit of an account"};
  Operation<const char* /*user*/, const char* /*line*/> handleUserLimit{"the sending limit of a mailbox"};
  Operation<const char* /*line*/> tellOfBlockedSenders{"the notice about blocked senders"};
  /// Disk usage of the mailboxes of one domain, or of all for null.
  Operation<const char* /*domain*/> cacheMailboxUsage{"the cache of mailbox disk usage"};
  /// The mailboxes of one user, or of all for null.
  Operation<const char* /*user*/, bool /*smart*/> convertToDovecot{"the conversion of mailboxes"};
  Operation<const char* /*user*/> convertInboxPrefix{"the inbox-prefix folders"};
  Operation<> deleteOldMailboxFiles{"the deletion of old mbox files"};
  /// The default spam settings for every account, and the settings of the record for those that lack them.
  Operation<ConfigFile* /*settings*/> addDefaultOptions{"the default spam and feature settings"};
  Operation<const char* /*domain*/, const char* /*user*/, Text* /*result*/> applyDefaultSpam{
      "the default spam settings of a domain"};
  Operation<const char* /*user*/> rewriteFilters{"the mail filters"};
  Operation<const char* /*user*/> rewritePasswords{"the mail password files"};
};

/// The operations this build holds.
MailOperations& mailOperations();

}  // namespace zvtaskq
