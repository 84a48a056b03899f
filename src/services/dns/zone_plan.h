// How the name server is told of zones: what all rewrites of them share.
#pragma once

#include <string>

#include "services/rewrite/rewrite.h"

namespace zvtaskq {

/// What the files of zones have in common, found out once for all of them. With `dnssec` zones are signed, when they
/// are where the name server may write, else the error log says that they are not; with a cluster its peers are told of
/// changes and may fetch them. Works as root, which is the identity of the moment.
class ZoneForm {
 public:
  explicit ZoneForm(bool mayBeSigned);
  /// The rewrite of zones and of their list, of everything or of a part. What the name server does not take of any
  /// zone, such as a policy for signing that it does not know, keeps all as they are.
  RewritePlan plan(bool isWhole) const;
  std::string fileOf(const std::string& zone) const;
  /// The file of a zone, and its entry in the list.
  Candidate candidate(Origin origin, const std::string& zone, std::string text) const;

 private:
  std::string entryOf(const std::string& zone, std::string_view file) const;

  std::string folder_;
  std::string clauses_;
  Ids owner_{};
};

}  // namespace zvtaskq
