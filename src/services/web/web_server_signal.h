// Telling the web servers that run to read their configuration and open their logs anew.
#pragma once

#include <string>

#include "core/text/text.h"

namespace zvtaskq {

class Config;

namespace web_server {

/// Tells the web server to reload without dropping a request: what is being served ends as it began, and the logs are
/// opened anew. With `nginx` that is Nginx, with `litespeed` LiteSpeed, otherwise Apache; with `nginx_proxy` Nginx and
/// Apache both.
///
/// Nginx gets its hang-up signal; with a configuration it cannot read it goes on as it is. Apache would leave with one,
/// so it is asked to test it first, and gets its signal for a graceful restart only when it finds no fault. The process
/// is the one that the pid file (`nginx_pid`, `apache_pid`) names, a file that root alone can write, as long as that is
/// a live process of that program. LiteSpeed gets a queue line, for the next run to carry out.
///
/// Runs under any identity, which is the same afterwards. 0 when any of them was not told: one error-log line each, and
/// the same words in `result`, when it is given, followed by "<br>\n".
[[nodiscard]] int hup(const Config& conf, Text* result);

/// Tells the PHP-FPM of that version to read its pools anew, when it runs and its own test finds no fault in them.
/// Requests that are being served end. Runs under any identity, which is the same afterwards. 0 with an error-log line.
[[nodiscard]] int reloadPhp(const std::string& version);

}  // namespace web_server

}  // namespace zvtaskq
