// What the check of a service has left out before, so that the same text is neither asked about nor told again.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "services/rewrite/candidate.h"

namespace zvtaskq {

/// A text in 16 digits, to tell whether it is the one that was left out. Equal texts give equal ones, in every run.
std::string fingerprintOf(std::string_view text);

/// "<admindir>/state/rewrites/<name>.left_out": a pair an origin, "<account> <part>=<seconds since the epoch>
/// <fingerprint>". Works as root, which is the identity of the moment.
class LeftOutNotes {
 public:
  explicit LeftOutNotes(std::string name) : name_(std::move(name)) {}

  /// One that is missing or damaged holds nothing.
  void read();
  /// Whether exactly this was left out less than a day ago.
  bool holds(const Origin& origin, const std::string& fingerprint) const;
  void add(const Origin& origin, const std::string& fingerprint);
  void remove(const Origin& origin);
  /// Forgets the origins that are not among these.
  void keepOnly(const std::set<Origin>& origins);
  /// Writes it when it has changed. A failure is told in the error log: the check is asked again then.
  void write();

 private:
  struct Note {
    long long stamp = 0;
    std::string fingerprint;
  };
  std::string path() const;

  std::string name_;
  std::map<Origin, Note> notes_;
  bool changed_ = false;
};

}  // namespace zvtaskq
