// Certificates from a certificate authority, by the client that the distribution has for its protocol (ACME):
// dehydrated. It runs as a user of its own, `kAcmeUser`, and gets a request, never a key; what it answers is judged by
// whoever asked. Where it asks, its own configuration says (see share/templates/acme_client.conf).
#pragma once

#include <string>

namespace zvtaskq {

inline constexpr const char* kAcmeUser = "zvacme";

/// The folder of what the authority asks the web servers for, as they are to serve it below
/// "/.well-known/acme-challenge/": `kAcmeUser` writes it, everybody may read it.
std::string challengeFolder();

enum class Signing {
  done,
  /// This request was refused, or not finished in time.
  refused,
  /// The authority cannot be asked at all.
  unreachable,
};

class AcmeClient {
 public:
  /// Looks for the user and the program, and makes the folders. Why it cannot be used; empty when it can. Works under
  /// any identity, which is the same afterwards, as all of these.
  std::string prepare();
  /// Has a request signed, for two minutes at most: `pem` is the certificate and its chain. When it is not done,
  /// `words` says why in one line.
  Signing sign(const std::string& request, std::string& pem, std::string& words) const;

 private:
  std::string folder_;
  std::string configuration_;
};

}  // namespace zvtaskq
