// The administrator's list of all accounts, ready to be shown.
#pragma once

namespace zvtaskq {

class Config;
class ConfigFile;
class ListFile;

/// Rebuilds "show_all_users.cache", and with `cloud_cache` set its copy "cloud.cache" beside it in `admindir`, in a
/// process of its own: a pair an account, the name and its record (tally/counts/list_record.h). That process begins
/// three seconds later, holds nothing of this one's, `connection` (an open client connection, -1 for none) included,
/// and takes the lock on the cache for as long as it lives. When another has it, "Unable to get lock on %s: %s.  Will
/// try on the next task.queue" is logged and the work queued again; names that can be no account's give "Bad username:
/// %s (check max_username_length=%d)".
///
/// All accounts are listed, unless `accounts` or the select0, select1, ... of `selection` (null for none) name some:
/// then the records of those alone are made anew, what is known of the others stays, and accounts that are gone go.
/// Where there is no list yet, all are listed.
/// `createdUsers` says that those are new, and makes a line that is queued name them again; without it, all are listed
/// then.
///
/// In demonstration mode nothing is done. Returns at once: 1, or 0 with an error-log line when there is no process to
/// be had. Finds and leaves nobody's identity.
int dumpShowAllUsersCache(const Config* conf, const ListFile* accounts = nullptr, int createdUsers = 0,
                          int connection = -1, const ConfigFile* selection = nullptr);

}  // namespace zvtaskq
