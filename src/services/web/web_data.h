// What the data of accounts says of their web sites, whichever server serves them.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/record/config_file.h"
#include "core/sys/identity.h"
#include "services/web/certificates.h"
#include "services/web/php_limits.h"

namespace zvtaskq {

/// The web servers, in the order of `WebSite::pieces`.
enum class WebServer { apache, nginx };

/// A site: a domain, a subdomain, or a pointer that leads to the domain.
struct WebSite {
  /// What its logs are called.
  std::string host;
  /// All names that it answers to; the first is `host`, but for a pointer.
  std::vector<std::string> names;
  /// Without ports; those of IPv6 without brackets.
  std::vector<std::string> addresses;
  std::string root;
  /// Over https.
  std::string secureRoot;
  /// The domain that a pointer leads to; empty for what is none.
  std::string target;
  bool isSuspended = false;
  bool forcesHttps = false;
  /// The domain's own certificate with chain and key, as one file; empty when it has none that may be used here.
  std::string certificate;
  /// Lines for each server.
  std::vector<std::string> pieces[2];
  /// The version of its PHP; empty when there is none.
  std::string php;
  std::vector<std::string> types;
  std::vector<std::string> handlers;
};

struct WebAccount {
  std::string name;
  std::string home;
  Ids ids{};
  bool isSuspended = false;
  PhpLimits phpLimits;
  /// Whether these are his: when not, his pools have to stay as they are.
  bool arePhpLimitsKnown = true;
  std::vector<WebSite> sites;
  /// Certificates that have to be judged; until then its sites have the one before, or none of their own.
  std::vector<NewCertificate> fresh;
  /// The files of certificates that its sites use no more.
  std::vector<std::string> stale;
};

/// What became of the data of an account.
enum class Gathered {
  ready,
  /// There is no such account, or it has no site.
  none,
  /// Something could not be read; the error log says so.
  unreadable,
};

/// Goes through accounts. What many of them share is read once. Works under any identity, which is the same afterwards.
class WebData {
 public:
  /// 0 with the reason in `result` when what all share cannot be read.
  [[nodiscard]] int read(Text& result);
  /// Of one account; null when its record cannot be read. Values that may not stand in a configuration are left out,
  /// and so is what depends on them, with an error-log line "<account> <domain>: <field> is refused: <why>" each.
  Gathered gather(const std::string& account, WebAccount& out);

 private:
  friend class AccountSites;
  const std::vector<std::string>& addressesOf(const std::string& ip);
  bool isOwned(const std::string& ip);
  bool mayHave(const std::string& account, const std::string& name) const;

  ConfigFile owners_{nullptr};
  /// Installed versions of PHP, the newest last.
  std::vector<std::string> php_;
  PhpLimitList phpLimits_;
  std::set<std::string> ours_;
  std::map<std::string, std::vector<std::string>, std::less<>> linked_;
  std::set<std::string> owned_;
  std::string serverAddress_;
};

}  // namespace zvtaskq
