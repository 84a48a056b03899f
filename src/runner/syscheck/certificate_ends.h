// When certificates end.
#pragma once

#include <string>
#include <vector>

#include "runner/syscheck/issues.h"

namespace zvtaskq {

/// Collects certificates and tells of those that end within two weeks, have ended, or cannot be read. Works under any
/// identity, which is the same afterwards.
class CertificateEnds {
 public:
  explicit CertificateEnds(Issues& issues) : issues_(issues) {}
  CertificateEnds(const CertificateEnds&) = delete;
  CertificateEnds& operator=(const CertificateEnds&) = delete;
  /// Asks for what is left.
  ~CertificateEnds() { ask(); }

  /// Reads the file as the identity of the moment; there being none is no issue. `whose` is what messages call it.
  void add(const std::string& whose, const std::string& path);

 private:
  struct One {
    std::string whose;
    std::string path;
    std::string pem;
  };
  /// Puts all that is collected to the helper zvcert.
  void ask();
  void tell(const One& one, long long until);

  Issues& issues_;
  std::vector<One> waiting_;
};

}  // namespace zvtaskq
