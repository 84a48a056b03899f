#include "services/web/server_form.h"

#include <cerrno>
#include <cstring>

#include "core/config/config.h"
#include "core/files/paths.h"
#include "core/panel/overrides.h"
#include "core/panel/panel_paths.h"
#include "core/panel/run_state.h"
#include "core/sys/privileges.h"
#include "core/text/names.h"
#include "services/certificate/acme_client.h"
#include "services/web/php_pools.h"
#include "services/web/server_check.h"

namespace zvtaskq {

namespace {

constexpr mode_t kMode = 0640;
constexpr mode_t kListMode = 0644;
constexpr mode_t kLogMode = 0711;
constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kSuspendedPage = "web_suspended.html";
constexpr const char* kDefaultPage = "web_default.html";

struct ServerRow {
  const char* name;
  const char* words;
  const char* file;
  const char* siteTemplate;
  const char* addressTemplate;
  const char* addressName;
  const char* head;
  const char* entry;
};
/// In the order of `WebServer`. A file that has vanished with its account must not keep a server from starting: Apache
/// passes it by when the include is optional, nginx when it is a pattern, which "/.[.]" makes of any path.
constexpr ServerRow kServers[] = {
    {"httpd", "Apache configuration", "httpd.conf", "httpd_site.txt", "httpd_ips.txt", "httpd_ips",
     "# The sites of the panel's accounts, for Apache to include. Written by the panel: changes are lost.\n"
     "<IfModule logio_module>\n  LogFormat \"%O %I\" zorvane_bytes\n</IfModule>\n"
     "<IfModule !logio_module>\n  LogFormat \"%B\" zorvane_bytes\n</IfModule>\n",
     "IncludeOptional |PLACE|\n"},
    {"nginx", "nginx configuration", "nginx.conf", "nginx_site.txt", "nginx_ips.txt", "nginx_ips",
     "# The sites of the panel's accounts, for nginx to include. Written by the panel: changes are lost.\n"
     "log_format zorvane_bytes '$bytes_sent $request_length';\n"
     "server_names_hash_max_size 65536;\nserver_names_hash_bucket_size 512;\n",
     "include /.[.]|PLACE|;\n"},
};

const ServerRow& rowOf(WebServer server) {
  return kServers[static_cast<std::size_t>(server)];
}

/// nginx wants endings without their dots.
std::vector<std::string> withoutDots(std::vector<std::string> lines) {
  for (std::string& line : lines) {
    for (std::size_t at = line.find(" ."); at != std::string::npos; at = line.find(" .")) line.erase(at + 1, 1);
  }
  return lines;
}

/// Where a page of the panel's is, an administrator's own or the stock one.
std::string folderOfPage(const Config& conf, const char* file) {
  return PathParts(templatePath(conf, file)).folder;
}

bool isThere(const Text& path) {
  return !path.isEmpty() && pathExists(path, PathKind::file) != 0;
}

}  // namespace

std::vector<WebServer> serversInUse(const Config& conf) {
  if (conf.nginx != 0) return {WebServer::nginx};
  if (conf.nginx_proxy != 0) return {WebServer::apache, WebServer::nginx};
  return {WebServer::apache};
}

ServerForm::ServerForm(WebServer server, const Config& conf)
    : conf_(conf),
      server_(server),
      isNginx_(server == WebServer::nginx),
      logs_((isNginx_ ? conf.nginxlogdir : conf.apachelogdir).orEmpty()),
      isBehind_(!isNginx_ && conf.nginx_proxy != 0),
      suspendedFolder_(folderOfPage(conf, kSuspendedPage)),
      owner_{kRootIds.user, idsOf(kPanelUser).group} {
  const AsRoot root;
  const Text& certificate = isNginx_ ? conf.nginx_cert : conf.apachecert;
  const Text& key = isNginx_ ? conf.nginx_key : conf.apachekey;
  if (!isThere(certificate) || !isThere(key)) return;
  certificate_ = certificate.view();
  key_ = key.view();
  if (!isNginx_ && isThere(conf.apacheca)) chain_ = conf.apacheca.view();
}

std::string ServerForm::fileOf(const std::string& account) const {
  return accountFile(account.c_str(), rowOf(server_).file);
}

int ServerForm::prepare(bool isWhole, RewritePlan& plan, Text& result) const {
  const ServerRow& row = rowOf(server_);
  const std::string list((isNginx_ ? conf_.nginxconf : conf_.httpdconf).view());
  if (list.empty()) return fail(result, "httpdconf is not set: there is no file for Apache to include");
  if (logs_.empty()) return fail(result, "apachelogdir is not set: there is no folder for the logs");
  const AsRoot root;
  for (const std::string& folder : {PathParts(logs_).folder, logs_}) {
    if (sys::mkdir(folder.c_str(), kLogMode) == 0 || errno == EEXIST) continue;
    const std::string why = std::strerror(errno);
    return fail(result, "Unable to make ", folder, ": ", why);
  }
  plan = {.name = row.name,
          .words = row.words,
          .check =
              [server = server_, list](const Trial& trial, std::string& words) {
                return checkServer(server, {{trial.list, list}}, words);
              },
          .list = {list, kRootIds, kListMode, row.head},
          .isWhole = isWhole,
          .followUp = {"httpd", "restart"}};
  return makeIncluded(result);
}

int ServerForm::makeIncluded(Text& result) const {
  const std::string list((isNginx_ ? conf_.nginxconf : conf_.httpdconf).view());
  const std::string addresses(addressPath().view());
  const AsRoot root;
  return (list.empty() || makeIfMissing(list, rowOf(server_).head, result)) &&
                 (addresses.empty() || makeIfMissing(addresses, "", result))
             ? 1
             : 0;
}

int ServerForm::readTemplate(Text& result) {
  return template_.read(rowOf(server_).siteTemplate, result);
}

int ServerForm::candidate(const WebAccount& account, Candidate& out, Text& result) {
  const ServerRow& row = rowOf(server_);
  std::string text =
      joined("# The sites of ", account.name, ", made by the panel from ", row.siteTemplate, ": changes are lost.\n");
  for (const WebSite& site : account.sites) {
    for (const bool isSecure : {false, true}) {
      if (isSecure && !hasSecure(site.certificate)) continue;
      SiteValues values;
      const unsigned flags = fillSite(account, site, isSecure, values);
      if (!template_.fill(flags, values, text, result)) return 0;
    }
  }
  out = {{account.name, ""}, fileOf(account.name), std::move(text), owner_, kMode, row.entry};
  return 1;
}

bool ServerForm::hasSecure(const std::string& own) const {
  return isBehind_ || !own.empty() || !certificate_.empty();
}

unsigned ServerForm::fillSite(const WebAccount& account, const WebSite& site, bool isSecure, SiteValues& values) const {
  const bool hasProxy = isNginx_ && conf_.nginx_proxy != 0;
  const bool forces = site.forcesHttps && (isBehind_ || hasSecure(site.certificate));
  unsigned flags = site.isSuspended                    ? kSuspended
                   : !site.target.empty()              ? kRedirect
                   : forces && !isSecure && !isBehind_ ? kForceHttps
                   : hasProxy                          ? kProxied
                                                       : kLive;
  if ((flags & kLive) != 0) fillPhp(account, site, flags, values);
  if (isBehind_) flags |= kBehind;
  if (isBehind_ && isSecure) flags |= kBehindSsl;
  if (!isBehind_) flags |= kBytes;
  if (conf_.nginx_proxy_buffering) flags |= kBuffers;
  values[WebToken::host] = {site.names.front()};
  values[WebToken::names] = {joinedWith(" ", site.names)};
  values[WebToken::alias].assign(site.names.begin() + 1, site.names.end());
  values[WebToken::root] = {isSecure ? site.secureRoot : site.root};
  values[WebToken::home] = {account.home};
  values[WebToken::log] = {joined(logs_, "/", site.host)};
  values[WebToken::target] = {joined(isSecure || forces ? "https://" : "http://", site.target)};
  fillPage(kSuspendedPage, suspendedFolder_, values);
  fillChallenges(flags, values);
  if ((flags & (kLive | kProxied)) != 0) values[WebToken::custom] = site.pieces[static_cast<std::size_t>(server_)];
  if ((flags & kLive) != 0) {
    values[WebToken::type] = isNginx_ ? withoutDots(site.types) : site.types;
    values[WebToken::handler] = site.handlers;
    if (!site.types.empty()) flags |= kHasTypes;
  }
  fillAddresses(site.addresses, isSecure, values);
  if (isSecure && !isBehind_) fillCertificate(site.certificate, flags, values);
  // Nobody is held to https for longer than his site is there.
  if (site.isSuspended) flags &= ~kHasHsts;
  return flags;
}

void ServerForm::fillPhp(const WebAccount& account, const WebSite& site, unsigned& flags, SiteValues& values) {
  flags |= site.php.empty() ? kNoPhp : kPhp;
  if (site.php.empty()) return;
  if (account.phpLimits.safeMode) flags |= kSafeMode;
  values[WebToken::socket] = {phpSocketOf(account.name, site.php)};
  values[WebToken::ids] = {joined("#", std::to_string(account.ids.user), " #", std::to_string(account.ids.group))};
}

void ServerForm::fillAddresses(const std::vector<std::string>& addresses, bool isSecure, SiteValues& values) const {
  const std::string inner = joined(":", isSecure ? conf_.port_8081 : conf_.port_8080);
  const std::string outer = joined(":", isSecure ? conf_.port_443 : conf_.port_80);
  std::vector<std::string>& all = values[WebToken::address];
  for (const std::string& address : addresses) {
    if (!isBehind_) all.push_back(isValidIPv6(address.c_str()) ? joined("[", address, "]", outer) : address + outer);
  }
  if (isBehind_) all.push_back(kLoopback + inner);
  values[WebToken::addresses] = {joinedWith(" ", all)};
  values[WebToken::backend] = {kLoopback + inner};
}

void ServerForm::fillListening(bool isSecure, SiteValues& values) const {
  const Text& port = isSecure ? conf_.port_443 : conf_.port_80;
  values[WebToken::listen] = isBehind_ ? values[WebToken::address] : std::vector<std::string>{port.orEmpty()};
}

void ServerForm::fillPage(const char* file, const std::string& folder, SiteValues& values) const {
  values[WebToken::pages] = {folder};
  values[WebToken::page] = {file};
}

/// Whoever else may answer a site: a suspended one is renewed too.
void ServerForm::fillChallenges(unsigned& flags, SiteValues& values) const {
  if (conf_.letsencrypt == 0) return;
  flags |= kHasChallenges;
  values[WebToken::challenges] = {challengeFolder()};
}

void ServerForm::fillCertificate(const std::string& own, unsigned& flags, SiteValues& values) const {
  flags |= kSsl;
  values[WebToken::certificate] = {own.empty() ? certificate_ : own};
  values[WebToken::key] = {own.empty() ? key_ : own};
  if (own.empty() && !chain_.empty()) {
    flags |= kHasChain;
    values[WebToken::chain] = {chain_};
  }
  if (!own.empty() && conf_.hsts > 0) {
    flags |= kHasHsts;
    values[WebToken::hsts] = {std::to_string(conf_.hsts)};
  }
}

const Text& ServerForm::addressPath() const {
  return isNginx_ ? conf_.nginxips : conf_.apacheips;
}

RewritePlan ServerForm::addressPlan() const {
  const ServerRow& row = rowOf(server_);
  return {.name = row.addressName,
          .words = row.words,
          .check =
              [server = server_](const Trial& trial, std::string& words) {
                std::vector<StandIn> files;
                for (const TrialFile* file : trial.fresh) files.push_back({file->place, file->path});
                return checkServer(server, files, words);
              },
          .followUp = {"httpd", "restart"}};
}

int ServerForm::addressFile(const std::vector<std::string>& addresses, Candidate& out, Text& result) const {
  const ServerRow& row = rowOf(server_);
  SiteTemplate form;
  if (!form.read(row.addressTemplate, result)) return 0;
  std::string text = joined("# Made by the panel from ", row.addressTemplate, ": changes are lost.\n");
  for (const bool isSecure : {false, true}) {
    SiteValues values;
    unsigned flags = kLive | (isBehind_ ? kBehind : 0U);
    if (isSecure && !hasSecure("")) continue;
    fillAddresses(addresses, isSecure, values);
    fillListening(isSecure, values);
    fillPage(kDefaultPage, folderOfPage(conf_, kDefaultPage), values);
    fillChallenges(flags, values);
    if (isSecure && !isBehind_) fillCertificate("", flags, values);
    if (!form.fill(flags, values, text, result)) return 0;
  }
  out = {{"", ""}, addressPath().orEmpty(), std::move(text), kRootIds, kListMode, ""};
  return 1;
}

}  // namespace zvtaskq
