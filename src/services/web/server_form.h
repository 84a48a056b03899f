// How each web server is told of an account's sites: which files, which template, which ports.
#pragma once

#include <string>

#include "services/rewrite/rewrite.h"
#include "services/web/site_template.h"
#include "services/web/web_data.h"

namespace zvtaskq {

class Config;

/// What a server needs for its list and its files.
class ServerForm {
 public:
  ServerForm(WebServer server, const Config& conf);

  /// The rewrite of its files and list, of everything or of a part. Makes what the server's check wants to open when it
  /// is missing: the folder of the logs, and `makeIncluded`. 0 with why in `result`.
  [[nodiscard]] int prepare(bool isWhole, RewritePlan& plan, Text& result) const;
  /// Makes the files that the server's own configuration includes when they are missing: it cannot be read without. 0
  /// with why in `result`.
  [[nodiscard]] int makeIncluded(Text& result) const;
  /// Reads the template. 0 with why in `result`.
  [[nodiscard]] int readTemplate(Text& result);
  /// The file of an account, and its entry in the list. 0 with why in `result`, which no account is to blame for.
  [[nodiscard]] int candidate(const WebAccount& account, Candidate& out, Text& result);
  /// The file of what listens, `nginxips` or `apacheips`, for all addresses of the server. 0 with why in `result`.
  [[nodiscard]] int addressFile(const std::vector<std::string>& addresses, Candidate& out, Text& result) const;
  /// Its rewrite. No path when the settings name none.
  RewritePlan addressPlan() const;
  /// The path of an account's file.
  std::string fileOf(const std::string& account) const;

 private:
  unsigned fillSite(const WebAccount& account, const WebSite& site, bool isSecure, SiteValues& values) const;
  static void fillPhp(const WebAccount& account, const WebSite& site, unsigned& flags, SiteValues& values);
  void fillAddresses(const std::vector<std::string>& addresses, bool isSecure, SiteValues& values) const;
  void fillListening(bool isSecure, SiteValues& values) const;
  void fillPage(const char* file, const std::string& folder, SiteValues& values) const;
  void fillChallenges(unsigned& flags, SiteValues& values) const;
  const Text& addressPath() const;
  void fillCertificate(const std::string& own, unsigned& flags, SiteValues& values) const;
  bool hasSecure(const std::string& own) const;

  const Config& conf_;
  const WebServer server_;
  const bool isNginx_;
  const std::string logs_;
  /// Apache behind nginx: it listens on the loopback, and nginx has the certificates.
  const bool isBehind_;
  /// The server's certificate, its key and chain; empty when they are not there.
  std::string certificate_;
  std::string key_;
  std::string chain_;
  /// Where the page of a suspended site is.
  std::string suspendedFolder_;
  Ids owner_{};
  SiteTemplate template_;
};

/// The servers that the settings name, the one that answers last.
std::vector<WebServer> serversInUse(const Config& conf);

}  // namespace zvtaskq
