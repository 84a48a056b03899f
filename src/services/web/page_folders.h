// Where in an account's home the pages of its sites are. The account may move things about there at any time: links are
// looked at, never followed, and what the servers are told besides keeps them from following one to other people's
// files later.
#pragma once

#include <string>

#include "core/sys/sys.h"

namespace zvtaskq {

/// Works as root, and gives back the identity it finds.
class PageFolders {
 public:
  explicit PageFolders(std::string home);
  /// The folder of a domain's pages. What is not there counts as what it should be. 0 with why in `why`: it is a link,
  /// or the way to it leads over one.
  [[nodiscard]] int find(const std::string& domain, std::string& folder, std::string& why) const;
  /// That of its pages over https: "private_html", or the other when that is a link to "./public_html" or missing.
  [[nodiscard]] int findSecure(const std::string& domain, std::string& folder, std::string& why) const;
  /// That of a subdomain, below one that was found for the domain.
  [[nodiscard]] int findBelow(const std::string& domain, const std::string& subdomain, std::string& why) const;

 private:
  enum class Kind { folder, missing, link, unreachable };
  Kind kindOf(const std::string& path) const;

  std::string home_;
  Descriptor folder_;
};

}  // namespace zvtaskq
