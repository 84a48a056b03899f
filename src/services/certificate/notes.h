// What is remembered of certificates from one check to the next: "<admindir>/state/certificates".
#pragma once

#include <set>
#include <string>
#include <vector>

#include "core/record/panel_file.h"

namespace zvtaskq {

struct CertificateNote {
  /// Attempts in a row that failed.
  int failures = 0;
  /// No attempt before that time, in seconds since the epoch; 0 for none.
  long long next = 0;
  /// When it was asked for in the last week.
  std::vector<long long> asked;
  /// How near its end was when the administrators were told last: see `stageOf` in check.h.
  int told = 0;
};

/// The notes of all certificates, by domain or setting. Works under any identity, which is the same afterwards.
class CertificateNotes {
 public:
  CertificateNotes();
  /// What cannot be read begins anew, with an error-log line. `now` is in seconds since the epoch: what lies too far
  /// ahead of it, or too far back, counts as never.
  void read(long long now);
  CertificateNote get(const std::string& name) const;
  void put(const std::string& name, const CertificateNote& note);
  /// Forgets the others.
  void keepOnly(const std::set<std::string>& names);
  /// Writes what has changed. 0 with an error-log line.
  int write();

 private:
  PanelRecord record_;
  long long now_ = 0;
};

}  // namespace zvtaskq
