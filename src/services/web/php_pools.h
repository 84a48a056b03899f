// PHP of the accounts' own: a pool of PHP-FPM for each account and version, which runs as the account.
//
// Where nginx serves the sites itself, or Apache does with mpm_itk, which answers for an account as that account. Else
// a pool's socket would be open to everybody who may write a rewrite rule into an ".htaccess": it names any other's as
// well.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "services/rewrite/rewrite.h"
#include "services/web/site_template.h"
#include "services/web/web_data.h"

namespace zvtaskq {

/// The installed versions of PHP-FPM that accounts can have a pool of, such as "8.2", the newest last.
std::vector<std::string> installedPhp();
/// Those of them that the sites' server may ask; none where it is one Apache for all.
std::vector<std::string> usablePhp();
/// The socket of an account's pool.
std::string phpSocketOf(const std::string& account, const std::string& version);

class PhpPools {
 public:
  /// Reads the template. 0 with why in `result`.
  [[nodiscard]] int read(Text& result);
  /// The rewrite of pools, of all accounts or a part. PHP-FPM itself judges them.
  static RewritePlan plan(bool isWhole);
  /// The pool of an account. 0 with why in `result`, which no account is to blame for.
  [[nodiscard]] int candidate(const WebAccount& account, const std::string& version, Candidate& out, Text& result);

 private:
  SiteTemplate template_;
};

}  // namespace zvtaskq
