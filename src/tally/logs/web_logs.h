// Where the web servers write their logs.
#pragma once

#include <string>
#include <vector>

namespace zvtaskq {

class Config;

/// The log folder of the server that serves the sites, `apachelogdir`, or `nginxlogdir` when Nginx is that server; and
/// of the proxy before it. Empty when the setting is.
std::string mainLogFolder(const Config& conf);
std::string proxyLogFolder(const Config& conf);

/// Whether a tally begins by putting all logs aside as ".1": with `rotation`, but not with `awstats`.
bool logsArePutAside(const Config& conf);

/// "sub.example.org", or "example.org" for a null subdomain; empty when either is not fit to be part of a file name.
std::string hostOf(const char* domain, const char* subdomain);

/// A log's name without its ending ".log" or ".error.log", and where it stands.
struct WebLog {
  std::string folder;
  std::string base;
  bool ofProxy;
};
/// The logs of a host: the main server's, and with `nginx_proxy` the proxy's, which may also be called "nginx-<host>"
/// and "nginx.<host>".
std::vector<WebLog> webLogsOf(const Config& conf, const std::string& host);

}  // namespace zvtaskq
