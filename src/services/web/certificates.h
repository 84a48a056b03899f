// Certificates of domains, before a server gets to see them.
//
// What an account or the panel puts beside a domain, ".cert", ".cacert" and ".key", may change at any moment and fit or
// not. The servers are given a copy of all three in one file, "<domain>.<fingerprint>.pem", which is made when they
// were found to fit and never changed: what has another content has another name.
#pragma once

#include <string>
#include <vector>

namespace zvtaskq {

/// One that has no file yet.
struct NewCertificate {
  std::string account;
  std::string domain;
  /// The file to be made, and its text.
  std::string path;
  std::string pem;
};

/// Asks the helper zvcert about them all at once, and makes the files of those that a server would take. Of the others,
/// an error-log line "<account> <domain>: certificate is refused: <why>". Works under any identity, which is the same
/// afterwards.
void judgeCertificates(const std::vector<NewCertificate>& all);

}  // namespace zvtaskq
