#include "runner/monitor/services_table.h"

#include <cstring>

#include "core/config/config.h"
#include "core/panel/run_state.h"

namespace zvtaskq {

const char* const kSystemServices[] = {"httpd", "zorvane",  "exim",  "mysqld",    "named", "proftpd",
                                       "sshd",  "vm-pop3d", "nginx", "litespeed", nullptr};
const char* const kSystemServiceNames[] = {"Apache", "Zorvane",  "Exim",  "MySQL",          "Named", "ProFTPd",
                                           "sshd",   "vm-Pop3d", "Nginx", "LiteSpeedHttpd", nullptr};
const char* const kServiceVerbs[] = {"reload", "graceful", "reread", "restart", "start", "stop", nullptr};

namespace {
constexpr const char* kPhpFpmVersions[] = {"php-fpm53", "php-fpm54", "php-fpm55", "php-fpm56",
                                           "php-fpm70", "php-fpm50", nullptr};
}

int placeIn(const char* word, const char* const* list) {
  if (word == nullptr || *word == '\0') return 0;
  for (int i = 0; list[i] != nullptr; ++i) {
    // Asked for every queue line: most words differ at once, and need no call.
    if (*word == *list[i] && std::strcmp(word, list[i]) == 0) return i + 1;
  }
  return 0;
}

bool is_other_service(const char* name) {
  if (placeIn(name, kPhpFpmVersions)) return true;
  const struct {
    const char* name;
    bool on;
  } optional[] = {{"pure-ftpd", sys_conf->pureftp != 0}, {"dovecot", sys_conf->dovecot != 0}};
  for (const auto& row : optional) {
    if (row.on && std::strcmp(name, row.name) == 0) return true;
  }
  return false;
}

}  // namespace zvtaskq
