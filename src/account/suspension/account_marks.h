// Marking an account's passwords, and giving them back: those of the system, of his mailboxes, of his FTP accounts.
//
// All of these may be called under any identity, which is the same afterwards; 0 comes with one line in `result`. What
// is not there (a system account, a mail folder, an FTP password file) has nothing to mark and is no failure. Doing
// what is done already changes nothing.
#pragma once

#include "account/model/account_holder.h"
#include "account/model/suspension_notes.h"

namespace zvtaskq {

/// Adds to the notes what is marked now: for an account all of it and the day its system account expires, for mailboxes
/// those of the domain alone.
[[nodiscard]] int noteAccountMarks(const AccountHolder& holder, SuspensionNotes& notes, Text& result);
[[nodiscard]] int noteMailboxMarks(const char* domain, SuspensionNotes& notes, Text& result);

/// The system account: its hash, and its day of expiry, which also keeps out who needs no password (a key, a cron job).
[[nodiscard]] int markSystem(const AccountHolder& holder, const SuspensionNotes& notes, Text& result);
[[nodiscard]] int freeSystem(const AccountHolder& holder, const SuspensionNotes& notes, Text& result);
/// The mailboxes of a domain.
[[nodiscard]] int markMailboxes(const char* domain, Text& result);
[[nodiscard]] int freeMailboxes(const char* domain, const SuspensionNotes& notes, Text& result);
/// His FTP accounts, in the file of all and in those of his domains; Pure-FTPd's database is queued to be made anew.
[[nodiscard]] int markFtp(const AccountHolder& holder, Text& result);
[[nodiscard]] int freeFtp(const AccountHolder& holder, const SuspensionNotes& notes, Text& result);

/// Takes all of his FTP accounts out of the password files, and queues what the FTP server needs then.
[[nodiscard]] int dropFtp(const AccountHolder& holder, Text& result);

/// The name of a mailbox in the notes.
std::string mailboxNote(std::string_view mailbox, const char* domain);

}  // namespace zvtaskq
