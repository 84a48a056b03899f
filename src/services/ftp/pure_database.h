// Pure-FTPd's database of log-ins, made of the FTP password files.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

/// Makes `ftppasswd_db` anew with `pure_pw` from `ftppasswd` and the files of domains, and puts it in place when it is
/// another than before; the server reads it at every log-in. A line that may not be one is left out, with an error-log
/// line, and so is one whose password is suspended; sessions of those who have no other are ended then. 0 with why in
/// `result` when the database stays as it was. Leaves nobody's identity.
[[nodiscard]] int rewritePureDatabase(Text& result);

}  // namespace zvtaskq
