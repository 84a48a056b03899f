// The renaming of all web logs at the start of a tally.
#pragma once

#include "core/text/text.h"

namespace zvtaskq {

class Config;

/// Renames every file ".log" (and so ".error.log") in the web server's log folder to the same name with ".1" behind it,
/// in place of an earlier one, rotates the logs of mod_security, has the web server open its logs anew, and runs the
/// administrator's "tally_rotation_post.sh". With `nginx_proxy` the proxy's folder comes first. With `proxyPass` only
/// the renaming is done, and in the proxy's folder. Not a line is lost: what is still being served is written to the
/// renamed file.
///
/// A link, and a file with more than one name, stays as it is, with a security-log line; so does a file that cannot be
/// renamed, with an error-log line. What the script printed is appended to `result`, which is in lines for people, and
/// so is a server that could not be told. Nothing is done in demonstration mode. Returns 1. Leaves the process at
/// nobody.
int rotate_apache_logs(const Config* conf, bool proxyPass, Text& result);

}  // namespace zvtaskq
