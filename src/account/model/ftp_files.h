// Where the FTP accounts of an account stand, and what is queued when they have changed.
//
// All stand in one file, `ftppasswd`. Without `unified_ftp_password_file` those of a domain on an address of its
// owner's alone may stand in a file of the domain instead. What is there counts, whatever the setting says.
#pragma once

#include <string>
#include <string_view>

#include "core/text/text.h"

namespace zvtaskq {

/// The password file of a domain, "<userdata>/<account>/domains/<domain>.ftppasswd", the panel's user's. There may be
/// none.
std::string domainFtpFile(const char* account, const char* domain);

/// The whole name of an FTP account: as it is when it has a domain, or is the name of its account; else with the domain
/// in whose file it stands.
std::string wholeFtpName(std::string_view name, std::string_view account, std::string_view domain);

/// Queues what the FTP server in use needs after a password has changed: Pure-FTPd a new database; ProFTPD, which reads
/// the files at every log-in, nothing. 0 with why in `result`. Leaves nobody's identity.
[[nodiscard]] int queueFtpPasswords(Text& result);
/// The same after password files or addresses came or went: ProFTPD gets its hosts (`ftpvhosts`) anew.
[[nodiscard]] int queueFtpHosts(Text& result);

}  // namespace zvtaskq
