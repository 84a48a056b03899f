// The files of an account's domains, in the folder of its data: looked through once, and each read once.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "core/sys/sys.h"

namespace zvtaskq {

/// Works under the panel's identity, which is that of the moment.
class DomainFiles {
 public:
  explicit DomainFiles(const std::string& account);
  /// Whether the folder could be looked through; errno says why not. One that is not there has no files.
  explicit operator bool() const { return isRead_; }
  bool has(const std::string& name) const { return names_.contains(name); }
  /// Those that are called "<domain>.<16 digits>.pem".
  std::vector<std::string> certificatesOf(const std::string& domain) const;
  /// The text of one that is there. 0 with errno: it is no file, too large, or belongs to neither the panel nor root.
  [[nodiscard]] int read(const std::string& name, std::string& text) const;
  /// Its path.
  std::string pathOf(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
  Descriptor folder_;
  std::set<std::string> names_;
  bool isRead_ = false;
};

}  // namespace zvtaskq
