#include "tally/logs/web_logs.h"

#include "core/config/config.h"
#include "core/text/names.h"

namespace zvtaskq {

namespace {
constexpr const char* kProxyPrefixes[] = {"", "nginx-", "nginx."};
}

std::string mainLogFolder(const Config& conf) {
  return (conf.nginx != 0 ? conf.nginxlogdir : conf.apachelogdir).orEmpty();
}

std::string proxyLogFolder(const Config& conf) {
  return conf.nginxlogdir.orEmpty();
}

bool logsArePutAside(const Config& conf) {
  return conf.rotation != 0 && conf.awstats == 0;
}

std::string hostOf(const char* domain, const char* subdomain) {
  const std::string host = subdomain == nullptr ? joined(domain) : joined(subdomain, ".", domain);
  return isValidDomain(domain) && isValidDomain(host.c_str()) ? host : "";
}

std::vector<WebLog> webLogsOf(const Config& conf, const std::string& host) {
  std::vector<WebLog> logs{{mainLogFolder(conf), host, false}};
  if (conf.nginx_proxy == 0) return logs;
  for (const char* prefix : kProxyPrefixes) logs.push_back({proxyLogFolder(conf), prefix + host, true});
  return logs;
}

}  // namespace zvtaskq
