// The traffic of the FTP server, from its transfer logs.
#pragma once

namespace zvtaskq {

class AccountBill;
class Config;

/// Reads what is new in the transfer logs of the FTP server in use: once before the accounts of a tally. What it finds
/// belongs to the account that logged in, or, for a log-in name with a domain behind `ftpsep`, to the domain's owner by
/// the table `domainowners`. Every transfer is told as debug output (level 1000).
///
/// - ProFTPD: the files that end in ".bytes" below "/var/log/proftpd/". The bytes are noted in the account's file
///   "ftp.bytes", for getFtpTotal.
/// - Pure-FTPd (`pureftp`): parse_pure_ftp_log.
///
/// With `incremental_ftp` a log is read from where the last reading ended, and stays: whoever rotates logs (logrotate,
/// with "delaycompress") rotates it, and what a log "<name>.1" holds beyond that place is read first. Otherwise a log
/// is moved aside, to
/// "<name>.temp" (Pure-FTPd: "<name>.copy"), and deleted when no server writes to it any more; until then it is read on
/// there. A working copy that a killed run left is finished first. In either way nothing is billed twice or left out,
/// whatever is killed when (TrafficLedger).
///
/// Each log is read under its lock ("Can't get lock on %s" in the error log; it is then read the next time). Works as
/// root, and leaves the process at nobody. 0 with an error-log line when something could not be read or billed.
[[nodiscard]] int collectFtpTraffic(const Config* conf);

/// The part of collectFtpTraffic for Pure-FTPd's log, `pureftp_log`: bills the owners with lines of `type` "ftp" in
/// their `bandwidth.tally`.
[[nodiscard]] int parse_pure_ftp_log(const Config* conf);

/// The bytes of FTP traffic that are noted for an account and stand in no tally file yet, by its "ftp.bytes": a part of
/// its bill. 0 when there is none, and when the file's lock cannot be had (error log: "Can't get lock on %s for tally
/// of %s"). Only after a collectFtpTraffic that succeeded: another one may still be at work on the file.
double getFtpTotal(AccountBill& bill);

}  // namespace zvtaskq
