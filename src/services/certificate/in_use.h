// All certificates in use: those of domains and of the server.
#pragma once

#include <string>
#include <vector>

#include "core/text/text.h"

namespace zvtaskq {

struct CertificateInUse {
  /// Empty for one of the server's.
  std::string account;
  /// The domain, or the setting that names the server's certificate.
  std::string name;
  /// Whether there is one; of a domain that only asks for one there is none yet.
  bool isThere = false;
  /// Seconds since the epoch.
  long long from = 0;
  long long until = 0;
  /// Why it cannot be read; empty when it can.
  std::string error;
  /// Nobody could say what it is: the helper gave no answer.
  bool isUnknown = false;
  /// The names that the panel asks for one for, separated by colons; empty when it does not keep this one renewed.
  std::string wanted;
  /// The panel may replace it: it asked for the one that is there, for these names, or somebody asks for one where
  /// there is none of the panel's asking.
  bool isOurs = false;
  std::string issuedNames;

  /// For messages: "bob bob.example".
  std::string label() const;
};

/// Gathers them: of every account, or with `only` of that domain alone. 0 with the reason in `result` when the accounts
/// or the owners of domains cannot be read. What cannot be read of one account is left out with an error-log line, and
/// `isWhole` is cleared. Works under any identity, which is the same afterwards.
[[nodiscard]] int readCertificatesInUse(const char* only, std::vector<CertificateInUse>& all, bool& isWhole,
                                        Text& result);

}  // namespace zvtaskq
