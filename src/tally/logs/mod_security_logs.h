// The logs of the web server's mod_security.
#pragma once

namespace zvtaskq {

class Config;

/// Rotates "modsec_audit.log" and "modsec_debug.log", which stand in the folder above that of the domains' logs (the
/// proxy's too with `nginx_proxy`), by their number. Then deletes from `modsec_audit_dir`, and from the folders in it
/// (one for each account, with some set-ups), every folder named for a day ("20261123") that is more than
/// `logs_to_keep` days (twice as many with `nginx_proxy`) ago. Links are neither followed nor crossed. What fails is
/// told in the error log, and the next is tried. Leaves the process at nobody.
void rotate_mod_security_logs(const Config* conf);

}  // namespace zvtaskq
