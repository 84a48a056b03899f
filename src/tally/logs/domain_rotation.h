// The way of a domain's web logs into the archives of its account.
//
// What a tally put aside as L.1 (tally/logs/web_rotation.h) is added to the month's archive in the account's folder
// "domains/<domain>/logs": "Nov-2026.tar.gz" for the main server's logs, "nginx-Nov-2026.tar.gz" for the proxy's. Each
// log is a member "<host>/20261123-001500-250.log" (or ".error.log"), named for its last line to the millisecond. The
// month is the one in which the log's last line lay twelve hours earlier, so that what a tally finds just after the
// turn of a month belongs to the month that ended.
//
// No line is lost, whatever fails and however often it runs:
// - A log is taken only when no server has it open for writing any more, and deleted only when it is in the archive.
// - Until then it waits, and so that the next tally's L.1 does not replace it, it moves on to the first free of L.2,
// L.3
//   and so on. A full disk quota, an archive that cannot be written, or a server that still serves an old request keep
//   it there until a later run succeeds.
// - A crash between the archive and the deletion adds a log twice, under one name: unpacked it is there once.
// With `awstats` the logs are not put aside by the tally; then the current log goes to L.1 here, and the tally has the
// servers open new ones when it has been through all accounts (services/web/web_server_signal.h).
#pragma once

#include <string>

namespace zvtaskq {

class Config;
struct OpenedFolder;
struct WebLog;

/// Archives the access and error logs of a domain, or of a subdomain of it (null for none), under the domain's account,
/// and deletes the account's oldest archives of that domain beyond `logs_to_keep` (twice as many with `nginx_proxy`).
/// Folders that are missing are made, with an error-log line. Nothing in demonstration mode and without `rotation`.
/// 1 when nothing had to be left for a later run but what is still being written; 0 with an error-log line. Leaves the
/// process at nobody.
[[nodiscard]] int rotateLogs(const Config* conf, const char* user, const char* domain, const char* subdomain = nullptr);

/// The same for one log, whose name is that of `log` and the ending (".log", ".error.log"), into archives in `target`.
/// Without a target, which is not open then, the log is only kept from being replaced.
[[nodiscard]] int rotateLog(const Config* conf, const char* user, const WebLog& log, const std::string& ending,
                            const OpenedFolder& target);

}  // namespace zvtaskq
