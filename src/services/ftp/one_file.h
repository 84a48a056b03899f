// From password files of domains to the one file of all.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// Moves the FTP accounts that stand in files of domains, of accounts with an address of their own, into `ftppasswd`,
/// their hashes as they are, a name without its domain under the whole one. They are taken out of the domain's file
/// when the other is safe on the disk, so that whoever is killed leaves each in at least one, and the next conversion
/// goes on. What is refused, and what `ftppasswd` has under that name already, stays where it is, with an error-log
/// line. With `simulates` the system log says what would be done, and nothing is.
///
/// 0 with why in `result` when `unified_ftp_password_file` is off, since servers would go on reading the files of the
/// domains, and when something could not be read or written. Leaves nobody's identity.
[[nodiscard]] int convertToOneFtpFile(bool simulates, Text& result);

}  // namespace zvtaskq
