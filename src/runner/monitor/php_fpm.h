// The PHP-FPM services that stand behind a web server.
#pragma once

namespace zvtaskq {

class ListFile;

/// Whether a name may stand in the command that controls a service: made of [A-Za-z0-9._@-], and not an option.
bool isServiceName(const char* name);

/// Fills `services` with the installed PHP-FPM services, sorted: the units named "php*-fpm*" or "php-fpm*" under
/// `systemd`, the init scripts so named otherwise. 1 when there is any.
[[nodiscard]] int installedPhpFpm(ListFile& services, bool systemd);

}  // namespace zvtaskq
