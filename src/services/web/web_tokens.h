// The tokens of the templates of web sites. What is known of them stands in this table alone; docs/templates.md is made
// from it.
#pragma once

#include <cstddef>

namespace zvtaskq {

enum class WebToken {
  host,
  names,
  alias,
  address,
  addresses,
  listen,
  root,
  home,
  log,
  target,
  certificate,
  key,
  chain,
  hsts,
  page,
  pages,
  challenges,
  backend,
  socket,
  ids,
  user,
  serverUser,
  type,
  handler,
  custom,
};

struct WebTokenRow {
  WebToken token;
  const char* name;
  /// A line with it stands once for each of its values, and not at all when it has none.
  bool isList;
  const char* example;
  const char* meaning;
};

/// In the order of the enumeration.
inline constexpr WebTokenRow kWebTokens[] = {
    {WebToken::host, "HOST", false, "bob.example",
     "The first name of the site: a domain, a subdomain with its domain, or a pointer that leads elsewhere."},
    {WebToken::names, "NAMES", false, "bob.example www.bob.example", "All names that it answers to, with its aliases."},
    {WebToken::alias, "ALIAS", true, "www.bob.example", "Those names but for the first."},
    {WebToken::address, "ADDRESS", true, "192.0.2.20:80",
     "The addresses with the port: that of the domain's record, else of the account's, and those linked to it; with "
     "`ipv6` "
     "those of IPv6 too."},
    {WebToken::addresses, "ADDRESSES", false, "192.0.2.20:80 [2001:db8::20]:80", "The same in one line."},
    {WebToken::listen, "LISTEN", true, "80", "Where Apache listens: a port, or behind nginx an address and a port."},
    {WebToken::root, "ROOT", false, "/home/bob/domains/bob.example/public_html",
     "The folder of the pages; over https `private_html`, unless that is missing or a link to the other."},
    {WebToken::home, "HOME", false, "/home/bob", "The home of the account."},
    {WebToken::log, "LOG", false, "/var/log/httpd/domains/bob.example", "The logs, without their endings."},
    {WebToken::target, "TARGET", false, "https://bob.example",
     "Where `REDIRECT` leads; the path of the request follows."},
    {WebToken::certificate, "CERTIFICATE", false,
     "/usr/local/zorvane/data/users/bob/domains/bob.example.9c1e5ad0f3b7a826.pem",
     "The certificate: the domain's own, with chain and key in one file, else the server's."},
    {WebToken::key, "KEY", false, "/usr/local/zorvane/data/users/bob/domains/bob.example.9c1e5ad0f3b7a826.pem",
     "Its key."},
    {WebToken::chain, "CHAIN", false, "/etc/httpd/conf/ssl.crt/server.ca",
     "The chain of the server's, for Apache alone."},
    {WebToken::hsts, "HSTS", false, "31536000", "Seconds, with `hsts` and a certificate of the domain's own."},
    {WebToken::page, "PAGE", false, "web_suspended.html",
     "The file of the page for who is suspended; of the default page in the templates of addresses."},
    {WebToken::pages, "PAGES", false, "/usr/local/zorvane/data/templates", "The folder it stands in."},
    {WebToken::challenges, "CHALLENGES", false, "/usr/local/zorvane/data/acme/challenges",
     "What a certificate authority asks for below `/.well-known/acme-challenge/`, with `HAS_CHALLENGES`."},
    {WebToken::backend, "BACKEND", false, "127.0.0.1:8080", "Where Apache answers behind nginx."},
    {WebToken::socket, "SOCKET", false, "/run/php/zorvane-bob-8.2.sock", "The socket of the account's PHP."},
    {WebToken::ids, "IDS", false, "#1001 #1001", "The account's user and group as Apache takes them, with `PHP`."},
    {WebToken::user, "USER", false, "bob", "The account, in the template of pools."},
    {WebToken::serverUser, "SERVER_USER", false, "www-data",
     "Who may ask the pool, in its template: whom nginx runs as, or the account itself where Apache serves the pages."},
    {WebToken::type, "TYPE", true, "text/x-shop .shop", "MIME types of the domain with their endings."},
    {WebToken::handler, "HANDLER", true, "cgi-script .cgi .pl", "Handlers of the domain with their endings."},
    {WebToken::custom, "CUSTOM", true, "expires 1h;", "The lines of the domain's own piece of configuration."},
};
inline constexpr std::size_t kWebTokenCount = sizeof kWebTokens / sizeof *kWebTokens;

constexpr const WebTokenRow& rowOf(WebToken token) {
  return kWebTokens[static_cast<std::size_t>(token)];
}

/// What a template may ask for by `|*if NAME|`.
struct WebFlagRow {
  const char* name;
  const char* meaning;
};
enum WebFlag : unsigned {
  kLive = 1U << 0,
  kProxied = 1U << 1,
  kSuspended = 1U << 2,
  kRedirect = 1U << 3,
  kForceHttps = 1U << 4,
  kSsl = 1U << 5,
  kBehind = 1U << 6,
  kBehindSsl = 1U << 7,
  kPhp = 1U << 8,
  kHasHsts = 1U << 9,
  kHasChain = 1U << 10,
  kHasTypes = 1U << 11,
  kBuffers = 1U << 12,
  kBytes = 1U << 13,
  kNoPhp = 1U << 14,
  kHasChallenges = 1U << 15,
  kOpenBasedir = 1U << 16,
  kSafeMode = 1U << 17,
};
/// In the order of their bits.
inline constexpr WebFlagRow kWebFlags[] = {
    {"LIVE", "Pages from `ROOT`. Of this and the next four exactly one is set."},
    {"PROXIED", "Pages from Apache, at `BACKEND`."},
    {"SUSPENDED", "The account or the domain is suspended, or its folders are refused: `PAGE`, status 503."},
    {"REDIRECT", "A pointer that is no alias: leads to `TARGET`."},
    {"FORCE_HTTPS", "Over http, when the domain's record says `force_https=yes`: leads to https."},
    {"SSL", "This server is asked over https."},
    {"BEHIND", "This is Apache behind nginx."},
    {"BEHIND_SSL", "And nginx was asked over https."},
    {"PHP", "There is a PHP of the account's own: where nginx serves the pages, or Apache with mpm_itk."},
    {"HAS_HSTS", "`HSTS` is set."},
    {"HAS_CHAIN", "`CHAIN` is set."},
    {"HAS_TYPES", "`TYPE` has a value."},
    {"BUFFERS", "`nginx_proxy_buffering` is on."},
    {"BYTES", "This server writes the byte log: nginx, when both are there."},
    {"NO_PHP", "Pages are served here, and there is no PHP: its files must not be shown."},
    {"HAS_CHALLENGES", "Certificates are asked for (`letsencrypt`)."},
    {"OPEN_BASEDIR", "In the template of pools: it opens files below the home alone (`open_basedir`)."},
    {"SAFEMODE", "With `PHP`, and in the template of pools: it starts no programs (`safemode`)."},
};

}  // namespace zvtaskq
