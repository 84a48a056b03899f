#include "runner/monitor/service_check.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "core/config/config.h"
#include "core/panel/run_state.h"
#include "core/process/system_tool.h"
#include "core/sys/log.h"
#include "core/sys/privileges.h"
#include "notify/ticket.h"
#include "runner/monitor/process_table.h"
#include "runner/monitor/service_names.h"
#include "runner/monitor/services_table.h"
#include "services/ftp/proftpd_check.h"
#include "services/rewrite/ask_server.h"
#include "services/rewrite/left_out.h"
#include "services/web/server_check.h"

namespace zvtaskq {

namespace {

constexpr const char* kVerbs[] = {"reload", "graceful", "reread", "restart", nullptr};
constexpr std::size_t kLongestWords = 2000;

struct CheckRow {
  const char* service;
  const char* programs[2];
  std::vector<std::string> arguments;
};
const CheckRow kRows[] = {
    {"named", {"/usr/bin/named-checkconf", "/usr/sbin/named-checkconf"}, {}},
    {"exim", {"/usr/sbin/exim", "/usr/sbin/exim4"}, {"-bV"}},
    {"dovecot", {"/usr/bin/doveconf", "/usr/sbin/doveconf"}, {"-n"}},
    {"sshd", {"/usr/sbin/sshd", nullptr}, {"-t"}},
};

/// "/usr/sbin/php-fpm8.2" for "php-fpm82" and "php8.2-fpm"; empty for another service.
std::string phpProgram(std::string_view service) {
  if (!service.starts_with("php") || service.find("fpm") == std::string_view::npos) return "";
  std::string version;
  for (const char c : service) {
    if (std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '.') version += c;
  }
  const bool isShort = version.size() == 2;
  return joined("/usr/sbin/php-fpm", version.substr(0, 1), isShort ? "." : "",
                version.substr(std::min<std::size_t>(1, version.size())));
}

Verdict ask(const char* program, std::vector<std::string> arguments, std::string& words) {
  ChildPlan plan = ChildPlan::program(program, std::move(arguments));
  plan.identity = kRootIds;
  return askServer(std::move(plan), program, words);
}

/// What the service's own check says; `unknown` when it has none.
Verdict check(const char* service, std::string& words) {
  const std::string meant = serviceMeantBy(service);
  if (meant == "nginx") return checkServer(WebServer::nginx, {}, words);
  if (meant == "httpd") return checkServer(WebServer::apache, {}, words);
  if (meant == "proftpd") return checkProftpd({}, words);
  for (const CheckRow& row : kRows) {
    if (meant != row.service) continue;
    const char* program = firstTool(row.programs);
    return program == nullptr ? Verdict::unknown : ask(program, row.arguments, words);
  }
  const std::string php = phpProgram(service);
  return toolExists(php.c_str()) ? ask(php.c_str(), {"-t"}, words) : Verdict::unknown;
}

/// PHP-FPM's processes are called by its program, its service otherwise.
bool runs(const char* service) {
  const std::string php = phpProgram(service);
  return running(service) || (!php.empty() && running(php.substr(php.rfind('/') + 1).c_str()));
}

void tell(const char* service, const char* verb, const std::string& words) {
  errorLog("%s is left running, and not told to %s: its configuration is refused: %s", service, verb,
           printable(trimmed(words).substr(0, kLongestWords)).c_str());
  const std::string subject = joined("The configuration of ", service, " is refused by its own check");
  const std::string message =
      joined("It was to be told to ", verb, " on ", sys_conf->servername,
             ", and was left running as it is. Once the check is content it is told again by the next line that asks "
             "for it.\n\n",
             trimmed(words).substr(0, kLongestWords));
  constexpr int kGeneral = 1;
  static_cast<void>(Ticket().notifyAdmins("", subject.c_str(), message.c_str(), kGeneral));
}

}  // namespace

bool isKeptFrom(const char* service, const char* verb) {
  if (!sys_conf->service_check || !placeIn(verb, kVerbs) || !runs(service)) return false;
  const AsRoot root;
  std::string words;
  const Verdict verdict = check(service, words);
  if (verdict == Verdict::unknown) return false;
  const Origin origin{service, ""};
  // Moments and process numbers are others each time.
  std::string same = words;
  std::erase_if(same, [](unsigned char c) { return std::isdigit(c) != 0; });
  const std::string fingerprint = fingerprintOf(same);
  LeftOutNotes told("services");
  told.read();
  const bool isKnown = told.holds(origin, fingerprint);
  verdict == Verdict::good ? told.remove(origin) : told.add(origin, fingerprint);
  told.write();
  if (verdict == Verdict::bad && !isKnown) tell(service, verb, words);
  return verdict == Verdict::bad;
}

}  // namespace zvtaskq
